#include "core/DescriberTable.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>

TEST(DescriberTable, FindsWhatAPlainWalkFinds) {
    struct Record {
        tagFileDescriber aDescriber;
        int nNumber;
    };
    SeededRandom aRandom;
    for (int nRound = 0; nRound < 30; ++nRound) {
        CDescriberTable<Record> aTable;
        std::vector<Record> vecModel;
        const unsigned nIds = 1 + aRandom.Below(12);  // few ids, so that many records share a key
        const auto type = [&] { return static_cast<std::uint16_t>(aRandom.Below(3)); };
        const auto kinds = [&] {  // usually a single bit, as in containers, or none
            return static_cast<std::uint8_t>(
                aRandom.Below(3) ? 1U << aRandom.Below(8) : aRandom.Below(2) * aRandom.Below(256));
        };
        for (int nStep = 0; nStep < 400; ++nStep) {
            if (aRandom.Below(3) == 0 && !vecModel.empty()) {
                aTable.RemoveLast();
                vecModel.pop_back();
            } else if (aRandom.Below(100) == 0) {
                aTable.Clear();
                vecModel.clear();
            } else {
                const Record aRecord{{type(), kinds(), aRandom.Below(nIds), 0}, nStep};
                aTable.Add(aRecord);
                vecModel.push_back(aRecord);
            }
            if (aRandom.Below(4) == 0) continue;  // so that several records are new to a lookup
            const tagDataInfo aWanted{type(), aRandom.Below(nIds), 0, kinds()};
            const Record* pWanted = nullptr;
            for (std::size_t i = vecModel.size(); i-- > 0;)
                if (DataInfoMatches(aWanted, vecModel[i].aDescriber)) pWanted = &vecModel[i];
            const Record* const pFound = aTable.Find(aWanted);
            ASSERT_EQ(pFound ? pFound->nNumber : -1, pWanted ? pWanted->nNumber : -1);
            ASSERT_EQ(aTable.Size(), vecModel.size());
        }
        for (std::size_t i = 0; i < vecModel.size(); ++i)
            ASSERT_EQ(aTable[i].nNumber, vecModel[i].nNumber);
    }
}
