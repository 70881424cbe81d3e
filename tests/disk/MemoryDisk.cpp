#include "tests/disk/MemoryDisk.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <thread>
#include <utility>

#include "platform/CmFile.h"

namespace {

using Change = MemoryDisk::Change;

/// What a std::FILE* of the layers above points to.
struct tagStream {
    MemoryDisk::FilePtr pFile;
    int nDescriptor = 0;
    std::uint64_t qwPosition = 0;
};
tagStream& Of(std::FILE* pStream) { return *reinterpret_cast<tagStream*>(pStream); }

int Refuse(int nErrno) {
    errno = nErrno;
    return -1;
}

/// A running file call. It holds the mutex of the disk, and has the fault for the call.
class CCall {
 public:
    explicit CCall(const MemoryDisk::Call& aCall = {MemoryDisk::Op_Place})
        : m_lock(Lock(aCall.aOp)) {
        if (m_disk.m_fault) m_fault = m_disk.m_fault(aCall);
        errno = m_fault.nErrno;
    }
    bool Fails() const { return m_fault.bFails; }
    int Result() const { return m_fault.bFails ? -1 : 0; }

    /// The file of that name. Null with errno ENOENT or EISDIR if it does not exist or is a
    /// directory.
    MemoryDisk::FilePtr Find(const CCmString& strPath) const {
        const auto it = m_disk.m_mapNames.find(strPath);
        if (it == m_disk.m_mapNames.end()) return Refuse(ENOENT), nullptr;
        return it->second ? it->second : (Refuse(EISDIR), nullptr);
    }
    bool Has(const CCmString& strPath) const {
        return strPath.empty() || m_disk.m_mapNames.count(strPath) > 0;
    }

    MemoryDisk& m_disk = MemoryDisk::Instance();
    MemoryDisk::Fault m_fault;

 private:
    std::unique_lock<std::mutex> Lock(MemoryDisk::Op aOp) const {
        const bool bSync = aOp == MemoryDisk::Op_Sync || aOp == MemoryDisk::Op_SyncNames;
        if (bSync) std::this_thread::sleep_for(m_disk.m_syncDelay);
        return std::unique_lock<std::mutex>(m_disk.m_mutex);
    }

    const std::unique_lock<std::mutex> m_lock;
};

CCmString ParentOf(const CCmString& strPath) {
    const std::size_t nAt = strPath.rfind('/');
    return nAt == CCmString::npos ? CCmString() : strPath.substr(0, nAt);
}

/// Sets what a name refers to, or removes the name if nWhat is c_nNothing.
int Name(CCall& aCall, const CCmString& strPath, int nWhat, MemoryDisk::FilePtr pFile) {
    if (aCall.Fails()) return -1;
    if (!aCall.Has(ParentOf(strPath))) return Refuse(ENOENT);
    if (nWhat == MemoryDisk::c_nNothing)
        aCall.m_disk.m_mapNames.erase(strPath);
    else
        aCall.m_disk.m_mapNames[strPath] = std::move(pFile);
    aCall.m_disk.Note({Change::Named, nWhat, true, 0, {}, strPath});
    return 0;
}

int Remove(const CCmString& strPath) {
    CCall aCall({MemoryDisk::Op_Name});
    const CCmString strKey = MemoryDisk::Key(strPath);
    return aCall.Has(strKey) ? Name(aCall, strKey, MemoryDisk::c_nNothing, nullptr)
                             : Refuse(ENOENT);
}

void CutTo(CCall& aCall, MemoryDisk::File& aFile, std::uint64_t qwSize) {
    aFile.strBytes.resize(static_cast<std::size_t>(qwSize));
    aCall.m_disk.Note({Change::Cut, aFile.nNumber, true, qwSize});
}

/// What a descriptor refers to; both members are empty if it is not open.
MemoryDisk::Opened OpenedAs(int nDescriptor) {
    MemoryDisk& aDisk = MemoryDisk::Instance();
    const std::lock_guard<std::mutex> aGuard(aDisk.m_mutex);
    const auto it = aDisk.m_mapDescriptors.find(nDescriptor);
    return it == aDisk.m_mapDescriptors.end() ? MemoryDisk::Opened{} : it->second;
}

}  // namespace

MemoryDisk& MemoryDisk::Instance() {
    static MemoryDisk s_disk;
    return s_disk;
}

void MemoryDisk::Clear() {
    m_mapNames.clear();
    m_vecLog.clear();
    m_bLog = false;
    m_fault = nullptr;
    m_syncDelay = {};
    m_nFiles = 0;
}

MemoryDisk::File& MemoryDisk::Put(const CCmString& strPath, CCmString strBytes) {
    FilePtr& pFile = m_mapNames[Key(strPath)] = NewFile();
    pFile->strBytes = std::move(strBytes);
    return *pFile;
}

CCmString MemoryDisk::Get(const CCmString& strPath) const {
    const auto it = m_mapNames.find(Key(strPath));
    return it != m_mapNames.end() && it->second ? it->second->strBytes : "<no file>";
}

CCmString MemoryDisk::Key(const CCmString& strPath) {
    CCmString strKey = strPath;
    std::replace(strKey.begin(), strKey.end(), '\\', '/');
    while (strKey.compare(0, 2, "./") == 0) strKey.erase(0, 2);
    while (!strKey.empty() && strKey.back() == '/') strKey.pop_back();
    return strKey == "." ? CCmString() : strKey;
}

void MemoryDisk::Note(Change aChange) {
    if (m_bLog) m_vecLog.push_back(std::move(aChange));
}

MemoryDisk::FilePtr MemoryDisk::NewFile() {
    const FilePtr pFile = std::make_shared<File>();
    pFile->nNumber = ++m_nFiles;
    return pFile;
}

int MemoryDisk::AddDescriptor(Opened aOpened) {
    m_mapDescriptors[++m_nDescriptors] = std::move(aOpened);
    return m_nDescriptors;
}

namespace CmFile {

std::FILE* Open(const CCmString& strPath, OpenMode aMode, PathText, const CmPlace&) {
    CCall aCall({MemoryDisk::Op_Open});
    if (aCall.Fails()) return nullptr;
    const CCmString strKey = MemoryDisk::Key(strPath);
    MemoryDisk::FilePtr pFile = aCall.Find(strKey);
    if (!pFile && (aMode == Open_Read || errno == EISDIR)) return nullptr;
    if (pFile && aMode == Open_New) return Refuse(EEXIST), nullptr;
    if (!pFile) {
        pFile = aCall.m_disk.NewFile();
        if (Name(aCall, strKey, pFile->nNumber, pFile) != 0) return nullptr;
    } else if (aMode == Open_Write) {
        CutTo(aCall, *pFile, 0);
    }
    ++pFile->nOpen;
    const int nDescriptor = aCall.m_disk.AddDescriptor({pFile});
    return reinterpret_cast<std::FILE*>(new tagStream{std::move(pFile), nDescriptor});
}

bool CanConvert(const CCmString& strPath, PathText aText) {
    return aText == Path_Local || !strPath.empty();
}

int Close(std::FILE* pStream) {
    const CCall aCall({MemoryDisk::Op_Close, Of(pStream).pFile.get()});
    --Of(pStream).pFile->nOpen;
    aCall.m_disk.m_mapDescriptors.erase(Of(pStream).nDescriptor);
    delete &Of(pStream);
    return aCall.Result();
}

int Seek(std::FILE* pStream, std::int64_t nPosition) {
    const CCall aCall;
    if (!aCall.Fails()) Of(pStream).qwPosition = static_cast<std::uint64_t>(nPosition);
    return aCall.Result();
}

std::size_t Write(std::FILE* pStream, const void* lpData, std::size_t dwLength) {
    tagStream& aStream = Of(pStream);
    CCall aCall({MemoryDisk::Op_Write, aStream.pFile.get(), aStream.qwPosition, dwLength});
    const std::size_t dwDone = aCall.Fails() ? aCall.m_fault.dwDone : dwLength;
    if (dwDone == 0) return 0;
    CCmString strPart(static_cast<const char*>(lpData), dwDone);
    CCmString& strBytes = aStream.pFile->strBytes;
    const auto dwFrom = static_cast<std::size_t>(aStream.qwPosition);
    strBytes.resize(std::max(strBytes.size(), dwFrom + dwDone));
    strBytes.replace(dwFrom, dwDone, strPart);
    aCall.m_disk.Note(
        {Change::Written, aStream.pFile->nNumber, true, aStream.qwPosition, std::move(strPart)});
    aStream.qwPosition += dwDone;
    return dwDone;
}

std::size_t WriteBlocks(std::FILE* pStream, const tagBlock* pBlocks, std::size_t nCount) {
    std::size_t nAll = 0;
    for (std::size_t i = 0; i < nCount; ++i) {
        const std::size_t nDone = Write(pStream, pBlocks[i].lpData, pBlocks[i].nLength);
        nAll += nDone;
        if (nDone < pBlocks[i].nLength) break;
    }
    return nAll;
}

int CutBack(std::FILE* pStream, std::int64_t nSize) {
    const auto qwSize = static_cast<std::uint64_t>(nSize);
    tagStream& aStream = Of(pStream);
    if (aStream.qwPosition == qwSize) return 0;
    CCall aCall({MemoryDisk::Op_Cut, aStream.pFile.get(), qwSize});
    if (aCall.Fails() || aStream.pFile->strBytes.size() != aStream.qwPosition) return -1;
    CutTo(aCall, *aStream.pFile, qwSize);
    return 0;
}

std::size_t Read(std::FILE* pStream, void* lpBuffer, std::size_t dwLength, bool& bEnd) {
    const CCall aCall;
    bEnd = false;
    if (aCall.Fails()) return 0;
    MemoryDisk::File& aFile = *Of(pStream).pFile;
    const std::uint64_t qwFrom = Of(pStream).qwPosition;
    const std::uint64_t qwTo = std::min<std::uint64_t>(qwFrom + dwLength, aFile.strBytes.size());
    ++aFile.qwReads;
    bEnd = qwFrom + dwLength > qwTo;
    if (qwFrom >= qwTo) return 0;
    if (std::max(qwFrom, aFile.qwBadFrom) < std::min(qwTo, aFile.qwBadTo)) {
        bEnd = false;
        return Refuse(EIO), 0;
    }
    const auto dwCount = static_cast<std::size_t>(qwTo - qwFrom);
    aFile.strBytes.copy(static_cast<char*>(lpBuffer), dwCount, static_cast<std::size_t>(qwFrom));
    aFile.qwBytesRead += dwCount;
    Of(pStream).qwPosition = qwTo;
    return dwCount;
}

ReadEnd ReadAt(std::FILE* pStream, std::int64_t nPosition, void* lpBuffer, std::size_t dwLength,
               std::size_t& dwRead) {
    Of(pStream).qwPosition = static_cast<std::uint64_t>(nPosition);
    bool bEnd = false;
    dwRead = Read(pStream, lpBuffer, dwLength, bEnd);
    if (dwRead == dwLength) return Read_Whole;
    return bEnd ? Read_AtEnd : Read_Failed;
}

int Flush(std::FILE*) { return 0; }

int SyncData(int nFile) {
    const MemoryDisk::FilePtr pFile = OpenedAs(nFile).pFile;
    if (!pFile) return Refuse(EBADF);
    CCall aCall({MemoryDisk::Op_Sync, pFile.get()});
    aCall.m_disk.Note({Change::Synced, pFile->nNumber, !aCall.Fails()});
    return aCall.Result();
}

int SyncDirectory(int nDirectory) {
    const MemoryDisk::Opened aOpened = OpenedAs(nDirectory);
    CCall aCall({MemoryDisk::Op_SyncNames});
    aCall.m_disk.Note({Change::NamesSynced, 0, !aCall.Fails(), 0, {}, aOpened.strDirectory});
    return aCall.Result();
}

int Sync(std::FILE* pStream) { return SyncData(Of(pStream).nDescriptor); }
void StartWriteBack(int) {}
int DescriptorOf(std::FILE* pStream) { return Of(pStream).nDescriptor; }

int Duplicate(std::FILE* pStream) {
    CCall aCall({MemoryDisk::Op_Open});
    return aCall.Fails() ? -1 : aCall.m_disk.AddDescriptor({Of(pStream).pFile});
}

int CloseDescriptor(int nDescriptor) {
    CCall aCall({MemoryDisk::Op_Close});
    return aCall.m_disk.m_mapDescriptors.erase(nDescriptor) == 1 ? aCall.Result() : Refuse(EBADF);
}

int OpenDirectoryOf(const CCmString& strPath, const CmPlace&, int nFile, tagFileId& aId) {
    const MemoryDisk::FilePtr pFile = OpenedAs(nFile).pFile;
    CCall aCall({MemoryDisk::Op_SyncNames});
    const CCmString strKey = MemoryDisk::Key(strPath);
    if (aCall.Fails()) return -1;
    if (nFile >= 0 && aCall.Find(strKey) != pFile) return Refuse(ENOENT);
    aId = {1, std::hash<CCmString>()(ParentOf(strKey))};
    return aCall.m_disk.AddDescriptor({nullptr, ParentOf(strKey)});
}

int FreeSpace(std::FILE*, std::uint64_t& qwBytes) {
    const CCall aCall;
    if (!aCall.Fails()) qwBytes = std::uint64_t{1} << 40;
    return aCall.Result();
}

std::int64_t Size(std::FILE* pStream) {
    const CCall aCall;
    if (aCall.Fails()) return -1;
    Of(pStream).qwPosition = Of(pStream).pFile->strBytes.size();
    return static_cast<std::int64_t>(Of(pStream).qwPosition);
}

bool Exists(const CCmString& strPath, const CmPlace&) {
    const CCall aCall;
    return aCall.Has(MemoryDisk::Key(strPath));
}

int MakeDirectory(const CCmString& strPath, const CmPlace&) {
    CCall aCall({MemoryDisk::Op_Name});
    const CCmString strKey = MemoryDisk::Key(strPath);
    return aCall.Has(strKey) ? Refuse(EEXIST)
                             : Name(aCall, strKey, MemoryDisk::c_nDirectory, nullptr);
}

int RemoveFile(const CCmString& strPath) { return Remove(strPath); }
int RemoveEmptyDirectory(const CCmString& strPath) { return Remove(strPath); }
int RemoveUtf8File(const CCmString& strPath) { return Remove(strPath); }

int RenameOver(const CCmString& strFrom, const CCmString& strTo) {
    CCall aCall({MemoryDisk::Op_Name});
    const MemoryDisk::FilePtr pFile = aCall.Find(MemoryDisk::Key(strFrom));
    if (!pFile || Name(aCall, MemoryDisk::Key(strTo), pFile->nNumber, pFile) != 0) return -1;
    return Name(aCall, MemoryDisk::Key(strFrom), MemoryDisk::c_nNothing, nullptr);
}

int SyncDirectoryOf(const CCmString& strPath) {
    CCall aCall({MemoryDisk::Op_SyncNames});
    aCall.m_disk.Note(
        {Change::NamesSynced, 0, !aCall.Fails(), 0, {}, ParentOf(MemoryDisk::Key(strPath))});
    return aCall.Result();
}

}  // namespace CmFile
