#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <utility>

#include "capi/cachefile_c.h"
#include "tests/support/HostTest.h"

// Tests of the C interface, which use only that interface.

namespace {

constexpr std::uint32_t c_dwNoHandle = 99;
constexpr std::int32_t c_lBadArgument = CACHEFILE_ERR_INVALID_ARG;
constexpr std::int32_t c_lBadState = CACHEFILE_ERR_INVALID_STATE;

/// A host with an attached thread, in an empty directory. It records its callbacks ("Open 0",
/// "Data 5 hello") and can make calls inside the next one.
class CHost {
 public:
    explicit CHost(std::uint32_t dwFlags) : m_dwFlags(dwFlags) {
        EXPECT_EQ(cachefile_caller_attach(), 0);
        m_callbacks.user = this;
        m_callbacks.on_status = [](void* user, std::int32_t operation, std::int32_t result) {
            static const char* const s_aNames[] = {"?", "Open", "Close", "Read", "Write"};
            static_cast<CHost*>(user)->Log(std::string(s_aNames[operation]) + " " +
                                           std::to_string(result));
        };
        m_callbacks.on_data = [](void* user, void* request, void* data, std::uint32_t length,
                                 const cachefile_data_info* info) {
            EXPECT_EQ(info->struct_size, sizeof *info);
            EXPECT_EQ(info->data_length, c_dwMark);
            const std::string strBytes(static_cast<const char*>(data), length);
            // s_handedOut marks the reads whose memory the host must free.
            if (request == &s_handedOut) cachefile_free(data);
            static_cast<CHost*>(user)->Log("Data " + std::to_string(length) + " " + strBytes);
        };
    }
    ~CHost() {
        cachefile_player_destroy(m_pPlayer);
        cachefile_writer_destroy(m_pWriter);
        EXPECT_EQ(cachefile_shutdown(), 0);
        EXPECT_EQ(cachefile_caller_detach(), 0);
    }

    bool IsAsync() const { return (m_dwFlags & CACHEFILE_ASYNC) != 0; }

    cachefile_writer* Writer() {
        if (m_pWriter) return m_pWriter;
        EXPECT_EQ(cachefile_writer_create(7, m_dwFlags, &m_callbacks, &m_pWriter), 0);
        return m_pWriter;
    }
    cachefile_player* Player(std::uint32_t dwMore = 0) {
        if (m_pPlayer) return m_pPlayer;
        EXPECT_EQ(cachefile_player_create(7, m_dwFlags | dwMore, &m_callbacks, &m_pPlayer), 0);
        return m_pPlayer;
    }
    void DestroyPlayer() { cachefile_player_destroy(std::exchange(m_pPlayer, nullptr)); }

    void Record(const char* lpName, const std::string& strBytes) {
        std::uint32_t dwFile = 0;
        ASSERT_EQ(cachefile_writer_open(Writer(), lpName, &dwFile), 0);
        ASSERT_EQ(cachefile_writer_append(Writer(), dwFile, strBytes.data(),
                                          static_cast<std::uint32_t>(strBytes.size())),
                  0);
        ASSERT_EQ(cachefile_writer_close(Writer(), dwFile), 0);
        Settle();
    }
    void OpenRecord(const char* lpName, std::int32_t bWritable = 0) {
        const cachefile_describer aDescriber = Describer();
        ASSERT_EQ(cachefile_player_open_record(Player(), lpName, &aDescriber, bWritable), 0);
    }

    /// Waits until the worker's queue is empty, runs the callbacks, and returns those since the
    /// last call.
    std::string Settle() {
        struct Access : HostTest {
            using HostTest::Settle;
        };
        if (IsAsync()) Access::Settle();
        return std::exchange(m_strLog, {});
    }

    /// Type 4, id 1004, kind 4; callbacks must return the other values unchanged.
    static cachefile_describer Describer() {
        cachefile_describer aDescriber = CACHEFILE_DESCRIBER_INIT;
        aDescriber.data_type = 4, aDescriber.file_id = 1004, aDescriber.file_kind = 4;
        aDescriber.extra_info = c_dwMark;
        return aDescriber;
    }
    static cachefile_data_info Info() {
        cachefile_data_info aInfo = CACHEFILE_DATA_INFO_INIT;
        aInfo.data_type = 4, aInfo.file_id = 1004, aInfo.file_kinds = 5;
        aInfo.data_length = c_dwMark;
        return aInfo;
    }

    static constexpr std::uint32_t c_dwMark = 77;
    static inline char s_handedOut;  // the request of reads whose memory the library allocates

    cachefile_callbacks m_callbacks = CACHEFILE_CALLBACKS_INIT;
    std::function<void()> m_onNext;  // runs inside the next callback

 private:
    void Log(const std::string& strEntry) {
        m_strLog += (m_strLog.empty() ? "" : ", ") + strEntry;
        if (const auto onNext = std::exchange(m_onNext, nullptr)) onNext();
    }

    const TestDir m_dir;
    const std::uint32_t m_dwFlags;
    cachefile_writer* m_pWriter = nullptr;
    cachefile_player* m_pPlayer = nullptr;
    std::string m_strLog;
};

class CInterface : public testing::TestWithParam<std::uint32_t> {
 protected:
    CHost m_host{GetParam()};
    const cachefile_data_info m_info = CHost::Info();
    const cachefile_describer m_describer = CHost::Describer();
};
INSTANTIATE_TEST_SUITE_P(Modes, CInterface, testing::Values(0U, std::uint32_t{CACHEFILE_ASYNC}),
                         [](const auto& aInfo) { return aInfo.param ? "Async" : "Sync"; });

TEST_P(CInterface, RecordsIntoPathsOfTheSystem) {
    cachefile_writer* const pWriter = m_host.Writer();
    EXPECT_EQ(cachefile_writer_status(pWriter), 0);
    // The writer copied the home directory when it was created.
    ASSERT_EQ(cachefile_set_home_dir("new/h\xC3\xB6me"), 0);
    std::uint32_t dwFile = 0;
    ASSERT_EQ(cachefile_writer_open(pWriter, "sub/a b", &dwFile), 0);
    EXPECT_EQ(cachefile_writer_write(pWriter, dwFile, "hello", 5, CACHEFILE_END), 0);
    EXPECT_EQ(cachefile_writer_write(pWriter, dwFile, "J", 1, 0), 0);
    EXPECT_EQ(cachefile_writer_append(pWriter, dwFile, nullptr, 0), 0);
    EXPECT_EQ(cachefile_writer_append(pWriter, dwFile, "!", 1), 0);
    EXPECT_EQ(cachefile_writer_flush(pWriter, dwFile), 0);
    EXPECT_EQ(m_host.Settle(), m_host.IsAsync() ? "Open 0" : "");
    EXPECT_EQ(ReadBytes("kvr2/7/sub/a b"), "Jello!");
    EXPECT_EQ(cachefile_writer_close(pWriter, dwFile), 0);
    EXPECT_EQ(cachefile_writer_close(pWriter, dwFile), c_lBadState);

    const std::string strAbsolute =
        (std::filesystem::current_path() / "x y" / "fourth").generic_string();
    for (const std::string& strDirectory :
         {std::string("other"), std::string("./third/"), std::string(), strAbsolute}) {
        ASSERT_EQ(cachefile_writer_set_dir(pWriter, strDirectory.c_str()), 0);
        m_host.Record("x", strDirectory);
        const std::string strPath = strDirectory + (strDirectory.empty() ? "x" : "/x");
        EXPECT_EQ(ReadBytes(strPath), strDirectory);
    }
    cachefile_writer* pLater = nullptr;
    ASSERT_EQ(cachefile_writer_create(8, 0, nullptr, &pLater), 0);
    ASSERT_EQ(cachefile_writer_open(pLater, "y", &dwFile), 0);
    cachefile_writer_destroy(pLater);
    EXPECT_EQ(ReadBytes("new/h\xC3\xB6me/8/y"), "");
    ASSERT_EQ(cachefile_set_home_dir("kvr2"), 0);
    EXPECT_EQ(cachefile_lost_bytes(), 0U);
}

TEST_P(CInterface, WritesAndPlaysRecordFiles) {
    m_host.Record("x", "hello");
    m_host.OpenRecord("x");
    m_host.Settle();
    cachefile_player* pPlayer = m_host.Player();
    char aBuffer[8] = "-------";
    ASSERT_EQ(cachefile_player_read(pPlayer, &m_info, aBuffer, 1, 7, nullptr), 0);
    EXPECT_EQ(m_host.Settle(), "Data 4 ello");
    EXPECT_STREQ(aBuffer, "ello---") << "what was read comes in the host's buffer, and no more";
    ASSERT_EQ(cachefile_player_read_alloc(pPlayer, &m_info, 0, 5, &m_host.s_handedOut), 0);
    EXPECT_EQ(m_host.Settle(), "Data 5 hello");
    std::uint32_t dwRead = 0;
    ASSERT_EQ(cachefile_player_read_sync(pPlayer, &m_info, aBuffer, 0, 7, &dwRead), 0);
    EXPECT_EQ(std::string(aBuffer, dwRead), "hello");
    EXPECT_EQ(m_host.Settle(), "");

    EXPECT_EQ(cachefile_player_write(pPlayer, &m_info, "x", 1, 0), c_lBadState);
    EXPECT_EQ(cachefile_player_close_files(pPlayer), 0);
    const std::int32_t lClosed = cachefile_player_read(pPlayer, &m_info, aBuffer, 0, 1, nullptr);
    if (m_host.IsAsync()) {
        EXPECT_EQ(lClosed, 0);
        EXPECT_EQ(m_host.Settle(), "Data 0 , Read 4007");
        EXPECT_EQ(cachefile_player_status(pPlayer), CACHEFILE_ERR_NOT_OPEN);
    } else {
        EXPECT_EQ(lClosed, CACHEFILE_ERR_NOT_OPEN);
        EXPECT_EQ(m_host.Settle(), "");
    }

    m_host.DestroyPlayer();
    pPlayer = m_host.Player();
    ASSERT_EQ(cachefile_player_set_dir(pPlayer, "made"), 0);
    m_host.OpenRecord("y", 1);
    ASSERT_EQ(cachefile_player_write(pPlayer, &m_info, "H", 1, 0), 0);
    ASSERT_EQ(cachefile_player_write(pPlayer, &m_info, "ello", 4, CACHEFILE_END), 0);
    ASSERT_EQ(cachefile_player_close_files(pPlayer), 0);
    m_host.Settle();
    EXPECT_EQ(ReadBytes("made/y"), "Hello");
}

/// Packs three streams with all functions that add one.
void Pack(const char* lpPath, std::uint32_t dwIndexType) {
    WriteBytes("source", "from a file");
    cachefile_packer* pPacker = nullptr;
    ASSERT_EQ(cachefile_packer_create(&pPacker), 0);
    EXPECT_EQ(cachefile_packer_write(pPacker, lpPath), c_lBadState);
    EXPECT_EQ(cachefile_packer_set_index_type(pPacker, dwIndexType), 0);
    EXPECT_EQ(cachefile_packer_set_header(pPacker, 3, 9), 0);
    cachefile_describer aDescriber = CHost::Describer();
    EXPECT_EQ(cachefile_packer_add_memory(pPacker, &aDescriber, "memory", 6), 0);
    EXPECT_EQ(cachefile_packer_add_memory(pPacker, &aDescriber, "again", 5), c_lBadArgument);
    aDescriber.file_id = 2004;
    EXPECT_EQ(cachefile_packer_add_file(pPacker, &aDescriber, "./source"), 0);
    EXPECT_EQ(cachefile_packer_add_tag_memory(pPacker, 268, 3, 0, nullptr, 0), 0);
    EXPECT_EQ(cachefile_packer_add_tag_file(pPacker, 269, 4, 5, "source"), 0);
    EXPECT_EQ(cachefile_packer_write(pPacker, lpPath), 0);
    cachefile_packer_destroy(pPacker);
}

TEST_P(CInterface, PacksAndPlaysAContainer) {
    Pack("b\xC3\xB6x.qxf", CACHEFILE_INDEX_CHAINED);
    cachefile_player* const pPlayer = m_host.Player(CACHEFILE_DOWNLOAD);
    EXPECT_EQ(cachefile_player_stream_count(pPlayer), 0U);
    ASSERT_EQ(cachefile_player_open_container(pPlayer, "b\xC3\xB6x.qxf"), 0);
    EXPECT_EQ(cachefile_player_open_container(pPlayer, "b\xC3\xB6x.qxf"),
              CACHEFILE_ERR_ALREADY_OPEN);
    m_host.Settle();
    ASSERT_EQ(cachefile_player_stream_count(pPlayer), 5U);
    cachefile_describer aStream = CACHEFILE_DESCRIBER_INIT;
    ASSERT_EQ(cachefile_player_get_stream(pPlayer, 0, &aStream), 0);
    EXPECT_EQ(std::memcmp(&aStream, &m_describer, sizeof aStream), 0);
    ASSERT_EQ(cachefile_player_get_stream(pPlayer, 3, &aStream), 0);
    EXPECT_EQ(aStream.file_id, 4004U);
    EXPECT_EQ(aStream.file_kind, 1U);
    EXPECT_EQ(aStream.extra_info, 5U);
    EXPECT_EQ(cachefile_player_get_stream(pPlayer, 5, &aStream), c_lBadArgument);
    EXPECT_EQ(cachefile_player_file_version(pPlayer), 3U);
    EXPECT_EQ(cachefile_player_cb_time_stamp(pPlayer), 9U);

    char aBuffer[16];
    std::uint32_t dwLength = 0;
    ASSERT_EQ(cachefile_player_stream_length(pPlayer, &m_info, &dwLength), 0);
    EXPECT_EQ(dwLength, 6U);
    ASSERT_EQ(cachefile_player_read(pPlayer, &m_info, aBuffer, 1, 5, nullptr), 0);
    EXPECT_EQ(m_host.Settle(), "Data 5 emory");
    cachefile_data_info aSecond = m_info;
    aSecond.file_id = 2004;
    ASSERT_EQ(cachefile_player_read_alloc(pPlayer, &aSecond, 0, 11, &m_host.s_handedOut), 0);
    EXPECT_EQ(m_host.Settle(), "Data 11 from a file");
    std::uint32_t dwRead = c_dwNoHandle;
    const std::int32_t lSync =
        cachefile_player_read_sync(pPlayer, &aSecond, aBuffer, 5, 6, &dwRead);
    EXPECT_EQ(lSync, m_host.IsAsync() ? c_lBadState : CACHEFILE_OK);
    EXPECT_EQ(std::string(aBuffer, dwRead), m_host.IsAsync() ? "" : "a file");
    aSecond.file_id = 9;
    EXPECT_EQ(cachefile_player_stream_length(pPlayer, &aSecond, &dwLength), c_lBadArgument);
    EXPECT_EQ(cachefile_player_read(pPlayer, &aSecond, aBuffer, 0, 1, nullptr), c_lBadArgument);
    EXPECT_EQ(cachefile_player_open_record(pPlayer, "x", &m_describer, 0), c_lBadState);
    EXPECT_EQ(m_host.Settle(), "");
}

TEST(CIndex, ShowsWhatAContainerHolds) {
    const TestDir aDir;
    Pack("box.qxf", CACHEFILE_INDEX_PACKED);
    cachefile_index* pIndex = nullptr;
    ASSERT_EQ(cachefile_index_create(&pIndex), 0);
    cachefile_container_header aHeader = CACHEFILE_CONTAINER_HEADER_INIT;
    std::uint32_t dwVersion = 0, dwStamp = 0, dwRead = 0;
    char aBuffer[16];
    EXPECT_EQ(cachefile_index_end_of_walk(pIndex), CACHEFILE_WALK_NONE);
    EXPECT_EQ(cachefile_index_get_conf(pIndex, nullptr, nullptr), CACHEFILE_ERR_NOT_OPEN);
    EXPECT_EQ(cachefile_index_read(pIndex, 0, aBuffer, 1, &dwRead), CACHEFILE_ERR_NOT_OPEN);
    ASSERT_EQ(cachefile_index_open(pIndex, "box.qxf"), 0);
    EXPECT_EQ(cachefile_index_end_of_walk(pIndex), CACHEFILE_WALK_COMPLETE);
    EXPECT_EQ(cachefile_index_end_offset(pIndex), 24U + 5 * 32);
    EXPECT_EQ(cachefile_index_file_size(pIndex), ReadBytes("box.qxf").size());
    ASSERT_EQ(cachefile_index_get_header(pIndex, &aHeader), 0);
    EXPECT_EQ(aHeader.entry_count, 5U);
    EXPECT_EQ(aHeader.file_size, cachefile_index_file_size(pIndex));
    ASSERT_EQ(cachefile_index_get_conf(pIndex, &dwVersion, &dwStamp), 0);
    EXPECT_EQ(dwVersion * 100 + dwStamp, 309U);

    cachefile_index_entry aEntry = CACHEFILE_INDEX_ENTRY_INIT;
    ASSERT_EQ(cachefile_index_get_entry(pIndex, 3, &aEntry), 0);
    const cachefile_index_entry aWanted = {
        sizeof aWanted, 24 + 3 * 32, 4, 5, aEntry.data_offset, 11, 0, 269, 4, 4004, 1, {}};
    EXPECT_EQ(std::memcmp(&aEntry, &aWanted, sizeof aEntry), 0);
    ASSERT_EQ(cachefile_index_stream_length(pIndex, 0, &dwRead), 0);
    EXPECT_EQ(dwRead, 6U);
    EXPECT_EQ(cachefile_index_stream_length(pIndex, 5, &dwRead), c_lBadArgument);
    ASSERT_EQ(cachefile_index_read(pIndex, aEntry.data_offset, aBuffer, 11, &dwRead), 0);
    EXPECT_EQ(std::string(aBuffer, dwRead), "from a file");
    EXPECT_EQ(cachefile_index_get_entry(pIndex, cachefile_index_entry_count(pIndex), &aEntry),
              c_lBadArgument);
    cachefile_index_destroy(pIndex);
}

TEST_P(CInterface, ABufferIsFreedIfThePlayerOrTheThreadEnds) {
    m_host.Record("x", Pattern(100000));
    enum { Destroy, DestroyInCallback, Detach };
    for (const bool bHandOut : {false, true})
        for (const int nEnd : {Destroy, DestroyInCallback, Detach}) {
            if (nEnd == Detach && !m_host.IsAsync()) continue;
            SCOPED_TRACE(std::to_string(bHandOut) + std::to_string(nEnd));
            m_host.OpenRecord("x");
            m_host.Settle();
            if (nEnd == DestroyInCallback) m_host.m_onNext = [this] { m_host.DestroyPlayer(); };
            auto pBuffer = std::make_unique<char[]>(100000);
            for (int nRead = 0; nRead < (m_host.IsAsync() ? 2 : 1); ++nRead)
                ASSERT_EQ(bHandOut ? cachefile_player_read_alloc(m_host.Player(), &m_info, 0,
                                                                 100000, &m_host.s_handedOut)
                                   : cachefile_player_read(m_host.Player(), &m_info, pBuffer.get(),
                                                           0, 100000, nullptr),
                          0);
            if (nEnd == Destroy) m_host.DestroyPlayer();
            if (nEnd == Detach) {
                EXPECT_EQ(cachefile_caller_detach(), 0);
                EXPECT_EQ(cachefile_caller_run_pending(nullptr), c_lBadState);
                ASSERT_EQ(cachefile_caller_attach(), 0);
            }
            if (nEnd != DestroyInCallback) pBuffer.reset();
            const bool bDelivered = nEnd == DestroyInCallback || !m_host.IsAsync();
            EXPECT_EQ(m_host.Settle().size() / 100000, bDelivered ? 1U : 0U);
            m_host.DestroyPlayer();
        }
}

TEST_P(CInterface, ACallbackMayReadAndRunTheQueue) {
    m_host.Record("x", "hello");
    m_host.OpenRecord("x");
    m_host.Settle();
    char aFirst[5], aSecond[5];
    m_host.m_onNext = [&] {
        EXPECT_EQ(cachefile_player_read(m_host.Player(), &m_info, aSecond, 1, 4, nullptr), 0);
        std::uint32_t dwCount = m_host.IsAsync() ? 0 : 1;
        while (dwCount == 0) EXPECT_EQ(cachefile_caller_wait_and_run(1000, &dwCount), 0);
        m_host.DestroyPlayer();
    };
    ASSERT_EQ(cachefile_player_read(m_host.Player(), &m_info, aFirst, 0, 5, nullptr), 0);
    EXPECT_EQ(m_host.Settle(), "Data 5 hello, Data 4 ello");
}

// Invalid arguments and states.

void ExpectRefused(const char* lpName, std::int32_t lResult) {
    EXPECT_EQ(lResult, c_lBadArgument) << lpName;
}

/// Makes aCall with null instead of a pointer, and expects a refusal. Null stands for a pointer
/// that may be null.
template <class T, class Call>
void ExpectNullRefused(const char* lpName, T& aArgument, Call aCall) {
    if constexpr (std::is_pointer_v<T>) {
        const T pGiven = std::exchange(aArgument, nullptr);
        if (pGiven) ExpectRefused(lpName, aCall());
        aArgument = pGiven;
    }
}

/// Calls a function several times, each time with another one of its pointers replaced by null.
template <class... P, class... Arguments>
void ExpectNullsRefused(const char* lpName, std::int32_t (*pFunction)(P...),
                        Arguments... aArguments) {
    std::tuple<P...> aAll(aArguments...);
    const auto call = [&] { return std::apply(pFunction, aAll); };
    std::apply([&](P&... aOne) { (ExpectNullRefused(lpName, aOne, call), ...); }, aAll);
}
#define REFUSES_NULL(function, ...) ExpectNullsRefused(#function, &function, __VA_ARGS__)

TEST_P(CInterface, NullArgumentsAreRefused) {
    cachefile_writer* pWriter = m_host.Writer();
    cachefile_player* pPlayer = m_host.Player();
    cachefile_packer* pPacker = nullptr;
    cachefile_index* pIndex = nullptr;
    ASSERT_EQ(cachefile_packer_create(&pPacker), 0);
    ASSERT_EQ(cachefile_index_create(&pIndex), 0);
    char b[4];
    int nDescriptor = 0;
    std::uint32_t n = c_dwNoHandle;
    cachefile_describer aDescriber = m_describer;
    cachefile_container_header aHeader = CACHEFILE_CONTAINER_HEADER_INIT;
    cachefile_index_entry aEntry = CACHEFILE_INDEX_ENTRY_INIT;
    REFUSES_NULL(cachefile_set_home_dir, "x");
    REFUSES_NULL(cachefile_caller_get_descriptor, &nDescriptor);
    REFUSES_NULL(cachefile_writer_create, 1, 0, nullptr, &pWriter);
    REFUSES_NULL(cachefile_writer_set_dir, pWriter, "x");
    REFUSES_NULL(cachefile_writer_open, pWriter, "x", &n);
    REFUSES_NULL(cachefile_writer_write, pWriter, 1, "x", 1, 0);
    REFUSES_NULL(cachefile_writer_append, pWriter, 1, "x", 1);
    REFUSES_NULL(cachefile_writer_set_pending_limit, pWriter, 1);
    REFUSES_NULL(cachefile_writer_flush, pWriter, 1);
    REFUSES_NULL(cachefile_writer_close, pWriter, 1);
    REFUSES_NULL(cachefile_player_create, 1, 0, nullptr, &pPlayer);
    REFUSES_NULL(cachefile_player_set_dir, pPlayer, "x");
    REFUSES_NULL(cachefile_player_open_record, pPlayer, "x", &m_describer, 0);
    REFUSES_NULL(cachefile_player_open_container, pPlayer, "x");
    REFUSES_NULL(cachefile_player_get_stream, pPlayer, 0, &aDescriber);
    REFUSES_NULL(cachefile_player_stream_length, pPlayer, &m_info, &n);
    REFUSES_NULL(cachefile_player_read, pPlayer, &m_info, b, 0, 4, nullptr);
    REFUSES_NULL(cachefile_player_read_alloc, pPlayer, &m_info, 0, 4, nullptr);
    REFUSES_NULL(cachefile_player_read_sync, pPlayer, &m_info, b, 0, 4, &n);
    REFUSES_NULL(cachefile_player_write, pPlayer, &m_info, "x", 1, 0);
    REFUSES_NULL(cachefile_player_close_files, pPlayer);
    REFUSES_NULL(cachefile_packer_create, &pPacker);
    REFUSES_NULL(cachefile_packer_set_index_type, pPacker, 0);
    REFUSES_NULL(cachefile_packer_set_header, pPacker, 1, 1);
    REFUSES_NULL(cachefile_packer_add_memory, pPacker, &m_describer, "x", 1);
    REFUSES_NULL(cachefile_packer_add_file, pPacker, &m_describer, "x");
    REFUSES_NULL(cachefile_packer_add_tag_memory, pPacker, 268, 1, 0, "x", 1);
    REFUSES_NULL(cachefile_packer_add_tag_file, pPacker, 268, 1, 0, "x");
    REFUSES_NULL(cachefile_packer_write, pPacker, "x");
    REFUSES_NULL(cachefile_index_create, &pIndex);
    REFUSES_NULL(cachefile_index_open, pIndex, "x");
    REFUSES_NULL(cachefile_index_get_header, pIndex, &aHeader);
    REFUSES_NULL(cachefile_index_get_entry, pIndex, 0, &aEntry);
    REFUSES_NULL(cachefile_index_stream_length, pIndex, 0, &n);
    REFUSES_NULL(cachefile_index_get_conf, pIndex, nullptr, nullptr);
    REFUSES_NULL(cachefile_index_read, pIndex, 0, b, 4, &n);
    EXPECT_EQ(cachefile_player_stream_count(nullptr) + cachefile_index_entry_count(nullptr), 0U);
    EXPECT_EQ(cachefile_index_file_size(nullptr) + cachefile_index_end_offset(nullptr), 0U);
    EXPECT_EQ(cachefile_player_cb_time_stamp(nullptr) + cachefile_player_file_version(nullptr), 0U);
    EXPECT_EQ(cachefile_writer_status(nullptr) + cachefile_player_status(nullptr), 0);
    EXPECT_EQ(cachefile_index_end_of_walk(nullptr), CACHEFILE_WALK_NONE);
    EXPECT_EQ(cachefile_packer_set_index_type(pPacker, 2), c_lBadArgument);
    EXPECT_EQ(cachefile_packer_add_tag_memory(pPacker, 1, 1, 0, "x", 1), c_lBadArgument);
    cachefile_packer_destroy(pPacker);
    cachefile_index_destroy(pIndex);
    cachefile_packer_destroy(nullptr);
    cachefile_index_destroy(nullptr);
    cachefile_writer_destroy(nullptr);
    cachefile_player_destroy(nullptr);
    cachefile_free(nullptr);
}

TEST_P(CInterface, TheSizeOfAStructSelectsItsKnownFields) {
    // A struct of a later version, with one more field after the known ones.
    struct {
        cachefile_callbacks aKnown;
        std::uint64_t qwMore;
    } aLater = {m_host.m_callbacks, 0};
    cachefile_writer* pWriter = nullptr;
    const auto create = [&](std::size_t nSize, std::uint64_t qwMore) {
        aLater.aKnown.struct_size = nSize;
        aLater.qwMore = qwMore;
        const std::int32_t lResult =
            cachefile_writer_create(7, GetParam(), &aLater.aKnown, &pWriter);
        cachefile_writer_destroy(std::exchange(pWriter, nullptr));
        return lResult;
    };
    EXPECT_EQ(create(sizeof aLater, 0), 0);
    EXPECT_EQ(create(sizeof aLater, 1), c_lBadArgument);
    EXPECT_EQ(create(0, 0), c_lBadArgument);
    EXPECT_EQ(create(sizeof aLater.aKnown - 1, 0), c_lBadArgument);

    cachefile_describer aDescriber = m_describer;
    cachefile_data_info aInfo = m_info;
    aDescriber.reserved[0] = aInfo.reserved[4] = 1;
    cachefile_player* const pPlayer = m_host.Player();
    EXPECT_EQ(cachefile_player_open_record(pPlayer, "x", &aDescriber, 1), c_lBadArgument);
    EXPECT_EQ(cachefile_player_write(pPlayer, &aInfo, "x", 1, 0), c_lBadArgument);

    struct {
        cachefile_container_header aKnown;
        std::uint64_t qwMore;
    } aHeader = {CACHEFILE_CONTAINER_HEADER_INIT, 5};
    aHeader.aKnown.index_type = 7;
    cachefile_index* pIndex = nullptr;
    ASSERT_EQ(cachefile_index_create(&pIndex), 0);
    EXPECT_EQ(cachefile_index_get_header(pIndex, &aHeader.aKnown), 0);
    EXPECT_EQ(aHeader.aKnown.index_type, 0U);
    EXPECT_EQ(aHeader.qwMore, 5U) << "outside of the size that the host gave";
    aHeader.aKnown.struct_size = sizeof aHeader;
    EXPECT_EQ(cachefile_index_get_header(pIndex, &aHeader.aKnown), 0);
    EXPECT_EQ(aHeader.aKnown.struct_size, sizeof aHeader);
    EXPECT_EQ(aHeader.qwMore, 0U);
    aHeader.aKnown.struct_size = sizeof aHeader.aKnown - 1;
    EXPECT_EQ(cachefile_index_get_header(pIndex, &aHeader.aKnown), c_lBadArgument);
    cachefile_index_destroy(pIndex);
}

TEST_P(CInterface, InvalidStatesAndArgumentsAreRefused) {
    cachefile_writer* pWriter = nullptr;
    cachefile_player* pPlayer = nullptr;
    EXPECT_EQ(cachefile_writer_create(1, CACHEFILE_DOWNLOAD, nullptr, &pWriter), c_lBadArgument);
    EXPECT_EQ(cachefile_player_create(1, 4, nullptr, &pPlayer), c_lBadArgument);
    EXPECT_FALSE(pWriter || pPlayer);
    std::uint32_t dwFile = c_dwNoHandle;
    EXPECT_EQ(cachefile_writer_append(m_host.Writer(), dwFile, "x", 1), c_lBadState);
    EXPECT_EQ(cachefile_writer_close(m_host.Writer(), dwFile), c_lBadState);
    if (std::filesystem::path::preferred_separator == '/') {
        EXPECT_EQ(cachefile_writer_open(m_host.Writer(), "a\\b", &dwFile), c_lBadArgument);
        EXPECT_EQ(cachefile_set_home_dir(".\\kvr2\\"), c_lBadArgument);
        EXPECT_EQ(dwFile, 0U);
    }
    pPlayer = m_host.Player();
    char b[4];
    EXPECT_EQ(cachefile_player_open_container(pPlayer, "x"), c_lBadState);
    EXPECT_EQ(cachefile_player_stream_length(pPlayer, &m_info, &dwFile), c_lBadState);
    EXPECT_EQ(cachefile_player_read(pPlayer, &m_info, b, 0, 4, nullptr), c_lBadState);
    ASSERT_EQ(cachefile_player_create(1, GetParam(), nullptr, &pPlayer), 0);
    ASSERT_EQ(cachefile_player_open_record(pPlayer, "x", &m_describer, 1), 0);
    EXPECT_EQ(cachefile_player_read(pPlayer, &m_info, b, 0, 4, nullptr), c_lBadState);
    EXPECT_EQ(cachefile_player_read_alloc(pPlayer, &m_info, 0, 4, nullptr), c_lBadState);
    cachefile_set_pending_limit(65536);
    const std::string strLarge(100000, 'x');
    EXPECT_EQ(cachefile_player_write(pPlayer, &m_info, strLarge.data(), 100000, 0),
              m_host.IsAsync() ? CACHEFILE_ERR_OUT_OF_MEMORY : CACHEFILE_OK);
    cachefile_set_pending_limit(UINT64_MAX);
    cachefile_player_destroy(pPlayer);
}

// The functions without a handle.

TEST_P(CInterface, ThreadsTraceAndWakeUp) {
    std::atomic<int> nLines{0}, nWakeUps{0};
    ASSERT_EQ(cachefile_set_trace([](void* user, std::int32_t,
                                     const char*) { ++*static_cast<std::atomic<int>*>(user); },
                                  &nLines, CACHEFILE_TRACE_INFO),
              0);
    ASSERT_EQ(cachefile_caller_set_wake_up(
                  [](void* user) { ++*static_cast<std::atomic<int>*>(user); }, &nWakeUps),
              0);
    int nDescriptor = 0;
    const std::int32_t lDescriptor = cachefile_caller_get_descriptor(&nDescriptor);
    EXPECT_EQ(lDescriptor, nDescriptor >= 0 ? CACHEFILE_OK : CACHEFILE_ERR_FAILED);
    std::thread([&] {
        std::uint32_t dwCount = 5;
        EXPECT_EQ(cachefile_caller_is_current(), 0);
        EXPECT_EQ(cachefile_caller_attach(), c_lBadState);
        EXPECT_EQ(cachefile_caller_wait_and_run(0, &dwCount), c_lBadState);
        EXPECT_EQ(dwCount, 0U);
        EXPECT_EQ(cachefile_caller_set_wake_up(nullptr, nullptr), c_lBadState);
    }).join();
    EXPECT_EQ(cachefile_caller_is_current(), 1);
    m_host.Record("x", "hello");
    EXPECT_GT(nLines, 0);
    EXPECT_EQ(nWakeUps > 0, m_host.IsAsync());
    ASSERT_EQ(cachefile_caller_set_wake_up(nullptr, nullptr), 0);
    ASSERT_EQ(cachefile_set_trace(nullptr, nullptr, 0), 0);
    const int nBefore = nLines + nWakeUps;
    m_host.Record("y", "hello");
    EXPECT_EQ(nLines + nWakeUps, nBefore);
}

TEST_P(CInterface, TheRoomWakeUpAndTheGatherAgeWork) {
    std::uint32_t dwFile = 0;
    ASSERT_EQ(cachefile_writer_open(m_host.Writer(), "x", &dwFile), 0);
    m_host.Settle();
    cachefile_set_room_wake_up(1);
    ASSERT_EQ(cachefile_writer_set_pending_limit(m_host.Writer(), 65536), 0);
    const std::string strPiece(40000, 'x');
    for (int i = 0; i < 20; ++i)
        while (cachefile_writer_append(m_host.Writer(), dwFile, strPiece.data(), 40000) != 0)
            ASSERT_EQ(cachefile_caller_wait_and_run(3'600'000, nullptr), 0);
    cachefile_set_gather_age(1);
    ASSERT_EQ(cachefile_writer_append(m_host.Writer(), dwFile, "old", 3), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    cachefile_flush_aged();
    cachefile_set_gather_age(0);
    m_host.Settle();
    EXPECT_EQ(ReadBytes("kvr2/7/x").size(), 800'003U);
    cachefile_set_room_wake_up(0);
}

TEST(CProcess, CodesAndTheVersionHaveTexts) {
    const std::uint32_t dwVersion = cachefile_version_number();
    EXPECT_EQ(dwVersion, std::uint32_t{CACHEFILE_VERSION_NUMBER});
    EXPECT_EQ(cachefile_version(), std::to_string(dwVersion / 10000) + "." +
                                       std::to_string(dwVersion / 100 % 100) + "." +
                                       std::to_string(dwVersion % 100));
    EXPECT_STREQ(cachefile_result_name(CACHEFILE_ERR_DISK_FULL), "CACHE_ERR_DISK_FULL");
    EXPECT_STREQ(cachefile_result_text(CACHEFILE_OK), "success");
    EXPECT_STREQ(cachefile_result_name(1), "unknown");
}

#if GTEST_HAS_DEATH_TEST
TEST(CProcessDeathTest, AnExceptionOfACallbackEndsTheProcess) {
    CHost aHost(0);
    aHost.Record("x", "hello");
    aHost.OpenRecord("x");
    aHost.m_onNext = [] { throw 1; };
    const cachefile_data_info aInfo = CHost::Info();
    char b[4];
    EXPECT_DEATH(cachefile_player_read(aHost.Player(), &aInfo, b, 0, 4, nullptr), "terminate");
}
#endif

}  // namespace
