#pragma once

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <vector>

#include "cachefile.h"
#include "tests/faults/Memory.h"
#include "tests/support/HostTest.h"

/// Numbered 32-bit words, so that a test can find out which write a word comes from. 0 is a hole.
CCmString Words(CmUint32 dwFirst, CmUint32 dwCount);

/// The host's knowledge about a record file.
class FileModel {
 public:
    explicit FileModel(const CCmString& strPath) : m_strPath(strPath) {}

    /// Returns the next dwWords words, which the host will write at dwHome, or append if that is
    /// 0xFFFFFFFF.
    const CCmString& NextPiece(CmUint32 dwWords, CmUint32 dwHome);
    /// Records the result of that write.
    void SetResult(CmInt32 lResult) { m_vecPieces.back().bAccepted = lResult == 0; }

    /// Returns how many accepted bytes are not in the file. Fails the test if the file contains a
    /// word that was not written, a word at a wrong offset, or only a part of an append.
    std::uint64_t CountMissing() const;

 private:
    struct Piece {
        CmUint32 dwFirst;
        CmUint32 dwEnd;
        CmUint32 dwHome;
        bool bAccepted;
    };

    const CCmString m_strPath;
    std::vector<Piece> m_vecPieces;
    CmUint32 m_dwNext = 1;
    CCmString m_strPiece;
};

/// The host of a session. It checks the contracts of the library while system calls fail or memory
/// runs out. Its own allocations never fail.
class Session final : public IFileOpSink {
 public:
    /// aCodes: the codes that are allowed besides 0. bCallbacksMayMiss: callbacks may be missing,
    /// because memory runs out.
    Session(Mode aMode, std::set<CmInt32> aCodes, bool bCallbacksMayMiss);

    /// Makes a call of the library, which must not throw and must return an allowed code.
    template <class Call>
    auto Do(Call aCall) -> decltype(aCall()) {
        const Memory::Scope aInside(true);
        try {
            return Heard(aCall());
        } catch (...) {
            return Thrown<decltype(aCall())>();
        }
    }

    /// Makes an open. In asynchronous mode it must be reported if its result is 0, or always.
    template <class Call>
    CmInt32 DoOpen(Call aCall, bool bInAnyCase = false) {
        const CmInt32 lResult = Do(aCall);
        if (m_aMode == Async && (lResult == 0 || bInAnyCase)) ++m_nOpens;
        return lResult;
    }

    /// Writes the next words of a file with aWrite(bytes, length).
    template <class Write>
    void DoWrite(FileModel& aModel, CmUint32 dwWords, CmUint32 dwHome, Write aWrite) {
        const CCmString& strPiece = aModel.NextPiece(dwWords, dwHome);
        aModel.SetResult(
            Do([&] { return aWrite(BytesOf(strPiece), static_cast<CmUint32>(strPiece.size())); }));
    }

    /// Reads from a file that contains strWhole, completely or only if no call failed.
    void DoRead(CPlayFileHandler* pHandler, const tagDataInfo& aInfo, const CCmString& strWhole,
                CmUint32 dwOffset, CmUint32 dwLength, bool bWhole = true);

    /// Runs callbacks, in asynchronous mode after the worker has done everything in its queue.
    void Settle();

    /// Ends the library's work and checks all counts.
    void Finish(const std::vector<const FileModel*>& vecFiles);

    const Mode m_aMode;

 private:
    struct Read {
        CCmString strBytes;  // the expected bytes
        bool bWhole;
    };

    CmInt32 Heard(CmInt32 lResult);
    template <class T>
    T* Heard(T* pObject) {
        return pObject;
    }
    template <class T>
    T Thrown() {
        const Memory::Scope aOutside(false);
        ADD_FAILURE() << "something was thrown out of the library";
        return T{};
    }

    void OnFileOpStatus(CCacheFileManager::LinkType aLinkType, CCacheFileManager::OpType aOpType,
                        CmInt32 aResult) override;
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength, const tagDataInfo&) override;

    const std::set<CmInt32> m_codes;
    const bool m_bCallbacksMayMiss;
    LostBytes m_lost;
    bool m_bFailed = false;                           // a call or callback has reported an error
    int m_nOpens = 0;                                 // opens that must be reported
    int m_aReports[5] = {};                           // callbacks by operation
    int m_aFailures[5] = {};                          // those with an error
    int m_nShort = 0;                                 // reads that returned less than the file has
    int m_nNotWritten = 0;                            // reads that returned less than was written
    std::map<const unsigned char*, Read> m_mapReads;  // accepted reads that are not yet delivered
};
