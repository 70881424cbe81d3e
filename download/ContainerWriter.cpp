#include "download/ContainerWriter.h"

#include <exception>
#include <new>
#include <utility>

#include "download/ContainerOutput.h"
#include "download/PackFailure.h"
#include "download/PackSource.h"
#include "platform/CmResult.h"
#include "platform/CmTraceLine.h"

namespace {

constexpr char c_szNoTag[] = "no container tag has its type, kind and id";
constexpr char c_szNoBytes[] = "it has neither bytes nor a path";
constexpr char c_szNoMemory[] = "there is not enough memory";

/// Keeps a failure that is not about a file, and returns lResult. Takes no memory.
CmInt32 Refuse(CContainerWriter::tagFailure& aFailure, const char* lpReason, CmInt32 lResult) {
    aFailure.strFile.clear();
    aFailure.lpReason = lpReason;
    aFailure.nErrno = 0;
    return lResult;
}

/// Where the host has the bytes of a stream: in the file *pPath, which may have more bytes than the
/// stream if bPart is true, or in memory if pPath is null.
struct tagGiven {
    const unsigned char* lpData;
    CmUint32 dwLength;
    const CCmString* pPath;
    bool bPart = false;

    bool IsAcceptable() const { return pPath ? !pPath->empty() : lpData || dwLength == 0; }
};

/// The conf stream that SetFileHeader makes is in the plan only while the container is written.
class CMadeConf {
 public:
    explicit CMadeConf(tagPackPlan& aPlan) : m_plan(aPlan) {
        tagPackStream aConf{{100, 2, 100, 0}, {}, CCmString(c_dwEntryFileHeaderSize, '\0'), {}};
        aConf.aEntry.wTag = c_wConfTag;
        m_plan.aStreams.Add(std::move(aConf));
    }
    ~CMadeConf() { m_plan.aStreams.RemoveLast(); }
    CMadeConf(const CMadeConf&) = delete;
    CMadeConf& operator=(const CMadeConf&) = delete;

 private:
    tagPackPlan& m_plan;
};

}  // namespace

/// Does the work of a container writer, which owns it together with the failure. Catches what
/// memory that cannot be had throws.
class CContainerPacker {
 public:
    explicit CContainerPacker(CContainerWriter::tagFailure& aFailure) : m_failure(aFailure) {}

    CmInt32 AddDescribed(const tagFileDescriber& aDescriber, const tagGiven& aGiven);
    CmInt32 AddEntry(const tagMRFD& aEntry, const tagGiven& aGiven);
    CmInt32 Write(const CCmString& strPath, const CContainerWriter::Progress& aProgress);

    tagPackPlan m_plan;

 private:
    CmInt32 Add(tagPackStream aStream);
    CmInt32 WriteWithConf(const CCmString& strPath, const CContainerWriter::Progress& aProgress);
    CmInt32 WriteStreams(const CCmString& strPath, const CContainerWriter::Progress& aProgress);

    CContainerWriter::tagFailure& m_failure;
};

CmInt32 CContainerPacker::AddDescribed(const tagFileDescriber& aDescriber, const tagGiven& aGiven) {
    tagMRFD aEntry{};
    if (FileDescriberToTag(aDescriber, aEntry) == CACHE_OK) return AddEntry(aEntry, aGiven);
    TraceError("CContainerWriter::AddStream->No tag for FileID=", aDescriber.dwFileID,
               " DataType=", aDescriber.wDataType, " FileType=", aDescriber.byFileType,
               " this=", this);
    return Refuse(m_failure, c_szNoTag, CACHE_ERR_INVALID_ARG);
}

CmInt32 CContainerPacker::AddEntry(const tagMRFD& aEntry, const tagGiven& aGiven) try {
    Refuse(m_failure, c_szNoBytes, CACHE_OK);
    CM_CHECK(aGiven.IsAcceptable(), "strPath || lpData", CACHE_ERR_INVALID_ARG);
    tagPackStream aStream{{}, aEntry, {}, {}};
    if (TagToFileDescriber(aEntry, aStream.aDescriber) != CACHE_OK) {
        TraceError("CContainerWriter::AddStream->Unknown tag=", aEntry.wTag, " this=", this);
        return Refuse(m_failure, c_szNoTag, CACHE_ERR_INVALID_ARG);
    }
    Refuse(m_failure, "", CACHE_OK);
    if (aGiven.pPath) aStream.strPath = *aGiven.pPath;
    if (aGiven.bPart)
        aStream.dwLength = aGiven.dwLength;
    else if (aGiven.lpData)
        aStream.strBytes.assign(reinterpret_cast<const char*>(aGiven.lpData), aGiven.dwLength);
    return Add(std::move(aStream));
} catch (const std::exception&) {  // no memory, or more than a string can hold
    TraceError("CContainerWriter::AddStream->Low memory", " this=", this);
    return Refuse(m_failure, c_szNoMemory, CACHE_ERR_OUT_OF_MEMORY);
}

CmInt32 CContainerPacker::Add(tagPackStream aStream) {
    const tagFileDescriber& aDescriber = aStream.aDescriber;
    const tagDataInfo aWanted{aDescriber.wDataType, aDescriber.dwFileID, 0, aDescriber.byFileType};
    const std::size_t nKnown = aStream.dwLength.value_or(aStream.strBytes.size());
    const bool bShortConf = aStream.IsConf() && (aStream.strPath.empty() || aStream.dwLength) &&
                            nKnown < c_dwEntryFileHeaderSize;
    if (m_plan.aStreams.Find(aWanted) || bShortConf) {
        TraceError("CContainerWriter::AddStream->",
                   (bShortConf ? "Conf stream without header" : "Stream added twice"),
                   " FileID=", aDescriber.dwFileID, " DataType=", aDescriber.wDataType,
                   " FileType=", aDescriber.byFileType, " this=", this);
        return KeepFailure(m_failure, aStream.strPath,
                           bShortConf ? c_szShortConf : "its stream was added before", 0,
                           CACHE_ERR_INVALID_ARG);
    }
    if (m_plan.aStreams.Size() >= c_dwMaxKnownEntries) {
        TraceError("CContainerWriter::AddStream->Too many streams", " this=", this);
        return KeepFailure(m_failure, aStream.strPath, c_szTooManyStreams, 0,
                           CACHE_ERR_OUT_OF_MEMORY);
    }
    m_plan.aStreams.Add(std::move(aStream));
    return CACHE_OK;
}

CmInt32 CContainerPacker::Write(const CCmString& strPath,
                                const CContainerWriter::Progress& aProgress) try {
    Refuse(m_failure, "", CACHE_OK);
    const bool bMakeConf = m_plan.aHeader && !m_plan.aStreams.Find({100, 100, 0, 2});
    return bMakeConf ? WriteWithConf(strPath, aProgress) : WriteStreams(strPath, aProgress);
} catch (const std::bad_alloc&) {
    TraceError("CContainerWriter::Write->Low memory", " this=", this);
    return Refuse(m_failure, c_szNoMemory, CACHE_ERR_OUT_OF_MEMORY);
}

CmInt32 CContainerPacker::WriteWithConf(const CCmString& strPath,
                                        const CContainerWriter::Progress& aProgress) {
    if (m_plan.aStreams.Size() >= c_dwMaxKnownEntries) {
        TraceError("CContainerWriter::Write->Too many streams for a conf stream", " this=", this);
        return KeepFailure(m_failure, strPath, c_szTooManyStreams, 0, CACHE_ERR_OUT_OF_MEMORY);
    }
    const CMadeConf aConf(m_plan);
    return WriteStreams(strPath, aProgress);
}

CmInt32 CContainerPacker::WriteStreams(const CCmString& strPath,
                                       const CContainerWriter::Progress& aProgress) {
    if (m_plan.aStreams.Size() == 0) {
        TraceError("CContainerWriter::Write->No stream", " this=", this);
        return KeepFailure(m_failure, strPath, "there is no stream to pack", 0,
                           CACHE_ERR_INVALID_STATE);
    }
    if (strPath.empty()) {
        TraceError("CContainerWriter::Write->No path", " this=", this);
        return KeepFailure(m_failure, strPath, "the container has no path", 0, CACHE_ERR_FAILED);
    }
    return CContainerOutput(strPath, m_plan, aProgress, m_failure).Run();
}

CContainerWriter::CContainerWriter() : m_pPacker(new (std::nothrow) CContainerPacker(m_failure)) {
    if (!m_pPacker) Refuse(m_failure, c_szNoMemory, CACHE_ERR_OUT_OF_MEMORY);
}

CContainerWriter::~CContainerWriter() = default;

const CContainerWriter::tagFailure& CContainerWriter::GetLastFailure() const { return m_failure; }

CmInt32 CContainerWriter::SetIndexType(CmUint32 dwIndexType) {
    if (!m_pPacker) return CACHE_ERR_OUT_OF_MEMORY;
    CM_CHECK(dwIndexType == Index_Packed || dwIndexType == Index_Chained, "dwIndexType",
             CACHE_ERR_INVALID_ARG);
    m_pPacker->m_plan.dwIndexType = dwIndexType;
    return CACHE_OK;
}

void CContainerWriter::SetFileHeader(CmUint32 dwFileVersion, CmUint32 dwCBTimeStamp) {
    if (m_pPacker) m_pPacker->m_plan.aHeader = tagPackHeader{dwFileVersion, dwCBTimeStamp};
}

CmInt32 CContainerWriter::AddStream(const tagFileDescriber& aDescriber, const unsigned char* lpData,
                                    CmUint32 dwLength) {
    if (!m_pPacker) return CACHE_ERR_OUT_OF_MEMORY;
    return m_pPacker->AddDescribed(aDescriber, {lpData, dwLength, nullptr});
}

CmInt32 CContainerWriter::AddStreamFile(const tagFileDescriber& aDescriber,
                                        const CCmString& strPath) {
    if (!m_pPacker) return CACHE_ERR_OUT_OF_MEMORY;
    return m_pPacker->AddDescribed(aDescriber, {nullptr, 0, &strPath});
}

CmInt32 CContainerWriter::AddStreamFile(const tagFileDescriber& aDescriber,
                                        const CCmString& strPath, CmUint32 dwLength) {
    if (!m_pPacker) return CACHE_ERR_OUT_OF_MEMORY;
    return m_pPacker->AddDescribed(aDescriber, {nullptr, dwLength, &strPath, true});
}

CmInt32 CContainerWriter::AddTagStream(std::uint16_t wTag, CmUint32 dwEntryID, CmUint32 dwExtraInfo,
                                       const unsigned char* lpData, CmUint32 dwLength) {
    if (!m_pPacker) return CACHE_ERR_OUT_OF_MEMORY;
    return m_pPacker->AddEntry({wTag, 0, dwEntryID, dwExtraInfo, 0, 0, 0, 0, 0},
                               {lpData, dwLength, nullptr});
}

CmInt32 CContainerWriter::AddTagStreamFile(std::uint16_t wTag, CmUint32 dwEntryID,
                                           CmUint32 dwExtraInfo, const CCmString& strPath) {
    if (!m_pPacker) return CACHE_ERR_OUT_OF_MEMORY;
    return m_pPacker->AddEntry({wTag, 0, dwEntryID, dwExtraInfo, 0, 0, 0, 0, 0},
                               {nullptr, 0, &strPath});
}

CmInt32 CContainerWriter::Write(const CCmString& strPath) { return Write(strPath, nullptr); }

CmInt32 CContainerWriter::Write(const CCmString& strPath, const Progress& aProgress) {
    if (!m_pPacker) return CACHE_ERR_OUT_OF_MEMORY;
    return m_pPacker->Write(strPath, aProgress);
}
