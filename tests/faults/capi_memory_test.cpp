#include <set>

#include "capi/cachefile_c.h"
#include "tests/faults/Memory.h"
#include "tests/support/HostTest.h"

// A C host that runs out of memory: each call returns a code and throws nothing, and no memory is
// leaked.

namespace {

class CSession {
 public:
    CSession(std::uint32_t dwFlags, std::set<std::int32_t> aCodes)
        : m_dwFlags(dwFlags), m_codes(std::move(aCodes)) {}

    /// Records, plays, packs, and reads the index of the container.
    void Run() {
        const Memory::Scope aInside{true};
        Expect(cachefile_set_trace([](void*, std::int32_t, const char*) {}, this,
                                   CACHEFILE_TRACE_INFO));
        Expect(cachefile_set_home_dir("a directory with a name that takes memory"));
        Record();
        Play();
        Pack();
        Look();
        Expect(cachefile_set_trace(nullptr, nullptr, 0));
    }

 private:
    void Expect(std::int32_t lResult) {
        if (lResult != 0 && m_codes.count(lResult) == 0) {
            const Memory::Scope aReport{false};
            ADD_FAILURE() << cachefile_result_text(lResult);
        }
    }

    static cachefile_callbacks Callbacks() {
        cachefile_callbacks aCallbacks = CACHEFILE_CALLBACKS_INIT;
        aCallbacks.on_data = [](void*, void* request, void* data, std::uint32_t,
                                const cachefile_data_info*) {
            if (!request) cachefile_free(data);
        };
        return aCallbacks;
    }

    void Record() {
        const cachefile_callbacks aCallbacks = Callbacks();
        cachefile_writer* pWriter = nullptr;
        std::uint32_t dwFile = 0;
        Expect(cachefile_writer_create(7, m_dwFlags, &aCallbacks, &pWriter));
        if (!pWriter) return;
        Expect(cachefile_writer_set_dir(pWriter, "another directory with a long name"));
        Expect(cachefile_writer_open(pWriter, "a file whose name takes memory", &dwFile));
        if (dwFile != 0) {
            Expect(cachefile_writer_append(pWriter, dwFile, m_aBytes, sizeof m_aBytes));
            Expect(cachefile_writer_flush(pWriter, dwFile));
            Expect(cachefile_writer_close(pWriter, dwFile));
        }
        Expect(cachefile_shutdown());
        cachefile_writer_destroy(pWriter);
    }

    void Play() {
        const cachefile_callbacks aCallbacks = Callbacks();
        cachefile_player* pPlayer = nullptr;
        Expect(cachefile_player_create(7, m_dwFlags | CACHEFILE_DOWNLOAD, &aCallbacks, &pPlayer));
        if (!pPlayer) return;
        Expect(cachefile_player_set_dir(pPlayer, "another directory with a long name"));
        cachefile_describer aDescriber = CACHEFILE_DESCRIBER_INIT;
        aDescriber.data_type = 4, aDescriber.file_id = 1004, aDescriber.file_kind = 4;
        cachefile_data_info aInfo = CACHEFILE_DATA_INFO_INIT;
        aInfo.data_type = 4, aInfo.file_id = 1004, aInfo.file_kinds = 4;
        const char* const lpName = "a file whose name takes memory";
        std::uint32_t dwRead = 0;
        Expect(cachefile_player_open_record(pPlayer, lpName, &aDescriber, 1));
        Expect(cachefile_player_write(pPlayer, &aInfo, m_aBytes, sizeof m_aBytes, 0));
        Expect(cachefile_player_read(pPlayer, &aInfo, m_aBytes, 0, sizeof m_aBytes, this));
        Expect(cachefile_player_read_alloc(pPlayer, &aInfo, 0, sizeof m_aBytes, nullptr));
        Expect(cachefile_player_read_sync(pPlayer, &aInfo, m_aBytes, 0, 9, &dwRead));
        Expect(cachefile_player_close_files(pPlayer));
        Expect(cachefile_shutdown());
        cachefile_player_destroy(pPlayer);
    }

    void Pack() {
        cachefile_packer* pPacker = nullptr;
        Expect(cachefile_packer_create(&pPacker));
        Expect(pPacker ? cachefile_packer_add_tag_memory(pPacker, 268, 1, 0, "x", 1) : 0);
        Expect(pPacker ? cachefile_packer_write(pPacker, "a container with a long name") : 0);
        cachefile_packer_destroy(pPacker);
    }

    void Look() {
        cachefile_index* pIndex = nullptr;
        Expect(cachefile_index_create(&pIndex));
        Expect(pIndex ? cachefile_index_open(pIndex, "a container with a long name") : 0);
        cachefile_index_destroy(pIndex);
    }

    const std::uint32_t m_dwFlags;
    const std::set<std::int32_t> m_codes;
    unsigned char m_aBytes[100] = {};
};

class CMemory : public testing::TestWithParam<std::uint32_t> {
 protected:
    /// Returns the number of allocations that a session leaves.
    std::size_t Left(const std::set<std::int32_t>& aCodes) {
        CSession aSession(GetParam(), aCodes);
        const std::size_t nBefore = Memory::InUse();
        aSession.Run();
        return HasFailure() ? 0 : Memory::InUse() - nBefore;
    }
    CMemory() { EXPECT_EQ(cachefile_caller_attach(), 0); }
    ~CMemory() override { EXPECT_EQ(cachefile_caller_detach(), 0); }

 private:
    const Memory::Scope m_outside{false};
    const TestDir m_dir;
};
INSTANTIATE_TEST_SUITE_P(Modes, CMemory, testing::Values(0U, std::uint32_t{CACHEFILE_ASYNC}),
                         [](const auto& aInfo) { return aInfo.param ? "Async" : "Sync"; });

TEST_P(CMemory, WhatIsThrownHasItsCode) {
    const Memory::Scope aInside{true};
    cachefile_packer* pPacker = nullptr;
    Memory::Arm(1, true);
    const std::int32_t lHome = cachefile_set_home_dir("a directory with a name that takes memory");
    const std::int32_t lPacker = cachefile_packer_create(&pPacker);
    Memory::Disarm();
    EXPECT_EQ(lHome, CACHEFILE_ERR_OUT_OF_MEMORY);
    EXPECT_EQ(lPacker, CACHEFILE_ERR_OUT_OF_MEMORY);
}

TEST_P(CMemory, EveryCallReturnsACodeAndNothingStays) {
    Left({});
    const std::size_t nLeft = Left({});
    int nMet = 1;
    int nNth = 0;
    // After a failed open, or without its container, a session continues and gets other codes.
    const std::set<std::int32_t> aCodes{4001, 4002, 4006, 4007, 4010, 4011};
    while (nMet > 0 && !HasFailure()) {
        SCOPED_TRACE(++nNth);
        Memory::Arm(nNth, false);
        const std::size_t nLeftNow = Left(aCodes);
        nMet = Memory::Disarm();
        EXPECT_LE(nLeftNow, nLeft);
    }
    EXPECT_GT(nNth, 50) << "the sweep meets the requests";
}

}  // namespace
