#include <gtest/gtest.h>

#include <cstring>

#include "fileop/FileOperation.h"

namespace {

/// The index of a virtual operation in the table of its class, in the Itanium C++ ABI. A destructor
/// takes two places.
template <class Operation>
std::size_t SlotOf(Operation aOperation) {
    std::size_t aWords[2];
    static_assert(sizeof aWords == sizeof aOperation, "another binary interface");
    std::memcpy(aWords, &aOperation, sizeof aWords);
    return (aWords[0] + aWords[1] % 2) /
           sizeof(void*);  // for a virtual operation one of the words is odd
}

}  // namespace

TEST(Slots, OfIFileOperationKeepTheirOrder) {
    const std::size_t aSlots[] = {
        SlotOf(&IFileOperation::AddReference), SlotOf(&IFileOperation::ReleaseReference),
        SlotOf(&IFileOperation::GetReference), SlotOf(&IFileOperation::Open),
        SlotOf(&IFileOperation::Close),        SlotOf(&IFileOperation::WriteData),
        SlotOf(&IFileOperation::ReadData),     SlotOf(&IFileOperation::AsyncReadData),
        SlotOf(&IFileOperation::GetFileName),  SlotOf(&IFileOperation::Flush)};
    const std::size_t aWanted[] = {2, 3, 4, 6, 7, 8, 9, 10, 11, 12};
    for (std::size_t i = 0; i < std::size(aWanted); ++i) EXPECT_EQ(aSlots[i], aWanted[i]) << i;
    EXPECT_GT(SlotOf(&IFileOperation::WriteBytes), 12U);
    EXPECT_GT(SlotOf(&IFileOperation::GiveData), 12U);
    EXPECT_GT(SlotOf(&IFileOperation::BytesToQueue), 12U);
}
