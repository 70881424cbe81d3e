#pragma once

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <vector>

#include "cachefile.h"
#include "tests/faults/Memory.h"
#include "tests/support/HostTest.h"

/// Numbered 32-bit words: every word of a record file tells where it comes from. 0 is none.
CCmString Words(CmUint32 dwFirst, CmUint32 dwCount);

/// A record file as the host knows it.
class FileModel {
 public:
    explicit FileModel(const CCmString& strPath) : m_strPath(strPath) {}

    /// The next dwWords words, which are meant for dwHome; 0xFFFFFFFF is behind those before.
    const CCmString& NextPiece(CmUint32 dwWords, CmUint32 dwHome);
    /// What came of that piece.
    void SetResult(CmInt32 lResult) { m_vecPieces.back().bAccepted = lResult == 0; }

    /// How many bytes the library has taken that the file doesn't hold. Fails the test if there is
    /// a word in the file that wasn't given, or not for there, or only a part of an append.
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

/// The host of a session, which holds the library to its promises while calls of the system fail
/// or memory runs out. Its own requests for memory never fail.
class Session final : public IFileOpSink {
 public:
    /// aCodes: which codes it may hear besides 0. bCallbacksMayMiss: memory runs out.
    Session(Mode aMode, std::set<CmInt32> aCodes, bool bCallbacksMayMiss);

    /// Makes a call of the library: nothing is thrown, and a result is a code that may be heard.
    template <class Call>
    auto Do(Call aCall) -> decltype(aCall()) {
        const Memory::Scope aInside(true);
        try {
            return Heard(aCall());
        } catch (...) {
            return Thrown<decltype(aCall())>();
        }
    }

    /// An open, which will be reported in asynchronous mode if its result is 0, or in any case.
    template <class Call>
    CmInt32 DoOpen(Call aCall, bool bInAnyCase = false) {
        const CmInt32 lResult = Do(aCall);
        if (m_aMode == Async && (lResult == 0 || bInAnyCase)) ++m_nOpens;
        return lResult;
    }

    /// Writes the next piece of a file through aWrite(bytes, length).
    template <class Write>
    void DoWrite(FileModel& aModel, CmUint32 dwWords, CmUint32 dwHome, Write aWrite) {
        const CCmString& strPiece = aModel.NextPiece(dwWords, dwHome);
        aModel.SetResult(Do([&] {
            return aWrite(reinterpret_cast<const unsigned char*>(strPiece.data()),
                          static_cast<CmUint32>(strPiece.size()));
        }));
    }

    /// Reads from a file that holds strWhole, or from one that is whole only if all went well.
    void DoRead(CPlayFileHandler* pHandler, const tagDataInfo& aInfo, const CCmString& strWhole,
                CmUint32 dwOffset, CmUint32 dwLength, bool bWhole = true);

    /// Runs callbacks, in asynchronous mode after everything that is queued for the worker.
    void Settle();

    /// Ends the library's work; then everything has to add up.
    void Finish(const std::vector<const FileModel*>& vecFiles);

    const Mode m_aMode;

 private:
    struct Read {
        CCmString strBytes;  // what it gives
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
    bool m_bFailed = false;                           // a code was heard
    int m_nOpens = 0;                                 // that have to be reported
    int m_aReports[5] = {};                           // by operation
    int m_aFailures[5] = {};                          // those of them that aren't 0
    int m_nShort = 0;                                 // reads that brought less than there is
    int m_nNotWritten = 0;                            // reads that brought less than was written
    std::map<const unsigned char*, Read> m_mapReads;  // accepted, not yet delivered
};
