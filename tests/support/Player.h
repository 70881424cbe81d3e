#pragma once

#include <vector>

#include "tests/support/Containers.h"
#include "tests/support/HostTest.h"

/// The stream of most tests of players, and a request for it.
constexpr tagFileDescriber c_aStream{8, 2, 7008, 5};
constexpr tagDataInfo c_aInfo{8, 7008, 99, 2};

/// A play handler. Its directory is .\kvr2\7\, where a Recording writes.
class Player {
 public:
    enum Use { ForFiles = 0, ForDownload = 1 };

    Player(Mode aMode, IFileOpSink* pSink, Use aUse = ForDownload);
    ~Player() { Destroy(); }
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    CmInt32 Open(const CCmString& strPath);  // opens a container; m_vecStreams receives its streams
    CmInt32 OpenFile(const CCmString& strName, const tagFileDescriber& aDescriber, int bWrite = 0);
    CmInt32 Write(const tagDataInfo& aInfo, const CCmString& strBytes, CmUint32 dwOffset);

    /// Reads into a new buffer of dwBuffer bytes (by default the length of the read). Frees it if
    /// the read is refused.
    CmInt32 Read(const tagDataInfo& aInfo, CmUint32 dwOffset, CmUint32 dwLength,
                 CmUint32 dwBuffer = 0);

    /// Reads synchronously and returns the bytes, or the code.
    CCmString SyncRead(const tagDataInfo& aInfo, CmUint32 dwOffset, CmUint32 dwLength);

    void Destroy();
    CPlayFileHandler* operator->() const { return m_pHandler; }

    std::vector<tagFileDescriber> m_vecStreams;

 private:
    CPlayFileHandler* m_pHandler;
};
