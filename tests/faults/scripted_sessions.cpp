#include <algorithm>
#include <optional>

#include "capi/cachefile_c.h"
#include "tests/faults/Session.h"
#include "tests/support/Containers.h"

namespace {

const tagFileDescriber c_in{3, 2, 1003, 0};
const tagFileDescriber c_out{8, 2, 2008, 0};
constexpr CmUint32 c_dwWhole = 10'000;

CCmString Home() { return ".\\kvr2\\7\\"; }

/// The directory of the sessions that read. It contains a record file of c_dwWhole bytes.
CCmString MakeInput() {
    const CCmString strIn = Words(1, c_dwWhole / 4);
    WriteBytes(Home() + "in", strIn);
    return strIn;
}

}  // namespace

/// Appends to two record files and writes at offsets. Closes one; Destroy closes the other.
void WriteSession(Session& aHost) {
    FileModel aAppended(Home() + "deep\\appended");
    FileModel aPlaced(Home() + "placed");
    const CCmString strLater = Home() + "for files that are opened later";
    CWriteFileHandler* const pHandler = aHost.Do(
        [&] { return CCacheFileManager::Instance().CreateWriteFileHandler(7, aHost.m_aMode); });
    if (pHandler && aHost.Do([&] { return pHandler->Initialize(&aHost); }) == 0) {
        CmUint32 aHandles[] = {0, 0};
        const auto append = [&](CmUint32 dwWords) {
            aHost.DoWrite(aAppended, dwWords, c_dwEnd, [&](const unsigned char* lp, CmUint32 dw) {
                return pHandler->WriteData(aHandles[0], lp, dw, c_dwEnd);
            });
        };
        const auto place = [&](CmUint32 dwWords, CmUint32 dwHome, CmUint32 dwOffset) {
            aHost.DoWrite(aPlaced, dwWords, dwHome, [&](const unsigned char* lp, CmUint32 dw) {
                return pHandler->WriteData(aHandles[1], lp, dw, dwOffset);
            });
        };
        const char* const aNames[] = {"deep\\appended", "placed"};
        for (const int i : {0, 1})
            aHost.DoOpen([&] { return pHandler->OpenWritingFile(aNames[i], aHandles[i]); });
        for (int i = 0; i < 7; ++i) append(1250);
        place(100, 0, c_dwEnd);  // gathered, and passed on by the next write
        place(100, 400, 400);
        place(500, 4000, 4000);
        aHost.Do([&] { return pHandler->FlushData(aHandles[0]), 0; });
        append(25);
        aHost.Settle();
        append(25);
        place(50, c_dwEnd, c_dwEnd);
        aHost.Do([&] { return pHandler->CloseFile(aHandles[0]); });
        aHost.Do([&] { return pHandler->SetHomeDir(strLater), 0; });
        aHost.Settle();
    }
    if (pHandler) aHost.Do([&] { return pHandler->Destroy(); });
    aHost.Finish({&aAppended, &aPlaced});
}

/// Reads a record file, and writes and reads another one.
void PlayFilesSession(Session& aHost) {
    const CCmString strIn = MakeInput();
    FileModel aOut(Home() + "out");
    CPlayFileHandler* const pHandler = aHost.Do(
        [&] { return CCacheFileManager::Instance().CreatePlayFileHandler(7, 0, aHost.m_aMode); });
    if (pHandler && aHost.Do([&] { return pHandler->Initialize(&aHost); }) == 0) {
        const tagDataInfo aIn = InfoOf(c_in);
        const tagDataInfo aOutInfo = InfoOf(c_out);
        aHost.DoOpen([&] { return pHandler->OpenRecordFile("in", c_in, 0); });
        aHost.DoOpen([&] { return pHandler->OpenRecordFile("out", c_out, 1); });
        aHost.DoRead(pHandler, aIn, strIn, 0, 4000);
        aHost.DoRead(pHandler, aIn, strIn, 8000, 4000);
        aHost.DoRead(pHandler, aIn, strIn, 50'000, 100);
        const auto append = [&](CmUint32 dwWords) {
            aHost.DoWrite(aOut, dwWords, c_dwEnd, [&](const unsigned char* lp, CmUint32 dw) {
                return pHandler->WriteData(aOutInfo, lp, dw, c_dwEnd);
            });
        };
        append(8200);
        aHost.DoRead(pHandler, aOutInfo, Words(1, 8200), 100, 4000, false);
        append(50);
        unsigned char aBuffer[200];
        CmUint32 dwLength = sizeof aBuffer;
        const CmInt32 lResult =
            aHost.Do([&] { return pHandler->SyncReadData(aIn, aBuffer, 9800, dwLength); });
        EXPECT_TRUE(
            lResult != 0 ||
            Difference({reinterpret_cast<char*>(aBuffer), dwLength}, strIn.substr(9800)).empty());
        aHost.Settle();
        aHost.Do([&] { return pHandler->CloseAllRecordFiles(); });
        aHost.Settle();
    }
    if (pHandler) aHost.Do([&] { return pHandler->Destroy(); });
    aHost.Finish({&aOut});
}

/// Reads the streams of a container.
void PlayContainerSession(Session& aHost) {
    constexpr unsigned c_nStreams = 12;
    constexpr CmUint32 c_dwStream = 400;
    const CmUint32 dwData = c_nHeader + c_nStreams * c_nEntry;
    CCmString strContainer;
    SetHeader(strContainer, dwData + c_nStreams * c_dwStream, c_nStreams, 0);
    std::vector<tagFileDescriber> vecWanted;
    for (unsigned i = 0; i < c_nStreams; ++i) {
        const unsigned wTag = c_aTagRows[i + 8].wTag;  // the conf stream is among them
        SetEntry(strContainer, c_nHeader + i * c_nEntry, {wTag, i, 0, dwData + i * c_dwStream, 0});
        vecWanted.push_back(DescriberOf(wTag, i, 0));
    }
    strContainer += Words(1, c_nStreams * c_dwStream / 4);
    WriteBytes("container", strContainer);

    CPlayFileHandler* const pHandler = aHost.Do(
        [&] { return CCacheFileManager::Instance().CreatePlayFileHandler(7, 1, aHost.m_aMode); });
    if (pHandler && aHost.Do([&] { return pHandler->Initialize(&aHost); }) == 0) {
        std::vector<tagFileDescriber> vecStreams;
        const CmInt32 lResult = aHost.DoOpen(
            [&] { return pHandler->OpenDownloadedFile(".\\container", vecStreams); }, true);
        if (lResult != 0) vecWanted.resize(std::min(vecStreams.size(), vecWanted.size()));
        EXPECT_EQ(vecStreams, vecWanted);
        for (unsigned i = 0; i < vecStreams.size(); i += 5)
            aHost.DoRead(pHandler, InfoOf(vecStreams[i]),
                         strContainer.substr(dwData + i * c_dwStream, c_dwStream), 0, c_dwStream);
        aHost.Settle();
        aHost.Do([&] { return pHandler->CloseAllRecordFiles(); });
        aHost.Settle();
        vecStreams = {};
    }
    if (pHandler) aHost.Do([&] { return pHandler->Destroy(); });
    aHost.Finish({});
}

/// Packs streams into a container that replaces an earlier one, and reads its index.
void PackSession(Session& aHost) {
    const CCmString strIn = MakeInput();
    const CCmString strEarlier = "an earlier container";
    WriteBytes("packed", strEarlier);
    CmInt32 lResult = 0;
    {
        std::optional<CContainerWriter> aWriter;
        aHost.Do([&] { return aWriter.emplace(), 0; });
        aWriter->SetFileHeader(1, 2);
        lResult = aHost.Do([&] { return aWriter->AddStream(c_in, BytesOf(strIn), 1000); });
        if (lResult == 0)
            lResult = aHost.Do([&] { return aWriter->AddStreamFile(c_out, Home() + "in"); });
        if (lResult == 0) lResult = aHost.Do([&] { return aWriter->Write(".\\packed"); });
    }
    CCmString strPacked = ReadBytes("packed");
    // It also exists after a code if only the sync of the directory failed.
    if (lResult == 0 || strPacked != strEarlier) {
        EXPECT_EQ(strPacked.size(), c_nHeader + 3 * c_nEntry + 1000 + strIn.size() + c_nConfHeader);
        EXPECT_EQ(strPacked.substr(c_nHeader + 3 * c_nEntry, 1000 + strIn.size()),
                  strIn.substr(0, 1000) + strIn);
    }
    EXPECT_FALSE(Exists("packed.partial"));
    if (lResult == 0) {
        std::optional<CContainerIndex> aIndex;
        aHost.Do([&] { return aIndex.emplace(), 0; });
        lResult = aHost.Do([&] { return aIndex->Open(".\\packed"); });
        EXPECT_TRUE(lResult != 0 || aIndex->GetEntryCount() == 3);
    }
    aHost.Finish({});
}

/// A host in C records, plays what it recorded, packs a container and looks at it.
void CHostSession(Session& aHost) {
    const std::uint32_t dwFlags = aHost.m_aMode == Async ? CACHEFILE_ASYNC : 0;
    const char* const lpName = "a file whose name takes memory";
    const auto call = [&](auto* pFunction, auto... aArguments) {
        return aHost.Do([&] { return pFunction(aArguments...); }) == 0;
    };
    unsigned char aBytes[100] = {};
    cachefile_callbacks aCallbacks = CACHEFILE_CALLBACKS_INIT;
    aCallbacks.on_data = [](void*, void* request, void* data, std::uint32_t,
                            const cachefile_data_info*) {
        if (!request) cachefile_free(data);
    };
    call(cachefile_set_home_dir, "a directory with a name that takes memory");

    cachefile_writer* pWriter = nullptr;
    std::uint32_t dwFile = 0;
    if (call(cachefile_writer_create, 7, dwFlags, &aCallbacks, &pWriter) &&
        call(cachefile_writer_set_dir, pWriter, "kvr2/a directory with a long name") &&
        call(cachefile_writer_open, pWriter, lpName, &dwFile)) {
        call(cachefile_writer_append, pWriter, dwFile, aBytes, 100);
        call(cachefile_writer_flush, pWriter, dwFile);
        call(cachefile_writer_close, pWriter, dwFile);
    }
    call(cachefile_shutdown);
    cachefile_writer_destroy(pWriter);

    cachefile_player* pPlayer = nullptr;
    cachefile_describer aDescriber = CACHEFILE_DESCRIBER_INIT;
    aDescriber.data_type = 4, aDescriber.file_id = 1004, aDescriber.file_kind = 4;
    cachefile_data_info aInfo = CACHEFILE_DATA_INFO_INIT;
    aInfo.data_type = 4, aInfo.file_id = 1004, aInfo.file_kinds = 4;
    std::uint32_t dwRead = 0;
    if (call(cachefile_player_create, 7, dwFlags, &aCallbacks, &pPlayer) &&
        call(cachefile_player_set_dir, pPlayer, "kvr2/a directory with a long name") &&
        call(cachefile_player_open_record, pPlayer, lpName, &aDescriber, 1)) {
        call(cachefile_player_write, pPlayer, &aInfo, aBytes, 100, 0);
        call(cachefile_player_read, pPlayer, &aInfo, aBytes, 0, 100, &aHost);
        call(cachefile_player_read_alloc, pPlayer, &aInfo, 0, 100, nullptr);
        call(cachefile_player_read_sync, pPlayer, &aInfo, aBytes, 0, 9, &dwRead);
        call(cachefile_player_close_files, pPlayer);
    }
    call(cachefile_shutdown);
    cachefile_player_destroy(pPlayer);

    cachefile_packer* pPacker = nullptr;
    cachefile_index* pIndex = nullptr;
    if (call(cachefile_packer_create, &pPacker) &&
        call(cachefile_packer_add_tag_memory, pPacker, std::uint16_t{268}, 1, 0, "x", 1) &&
        call(cachefile_packer_write, pPacker, "packed") && call(cachefile_index_create, &pIndex))
        call(cachefile_index_open, pIndex, "packed");
    cachefile_packer_destroy(pPacker);
    cachefile_index_destroy(pIndex);
    call(cachefile_set_home_dir, "kvr2");
    aHost.Finish({});
}
