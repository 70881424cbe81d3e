#include "tools/cachefile/Sources.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <set>

#include "download/ContainerFormat.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/OutputFile.h"
#include "tools/cachefile/RecordingLock.h"

void tagSource::BeginPart(const tagPlan& aPlan, std::size_t nSources) {
    pRecorder = std::make_unique<CRecorder>(aPlan, aDescriber);
    aSamples.emplace(nSources, CSamples::Clock::now());
    bFileMade = bRecorded = false;
}

void tagSource::EndPart() {
    aEarlierParts = GetTotals();
    pRecorder.reset();
}

tagTotals tagSource::GetTotals() const {
    tagTotals aTotals = aEarlierParts;
    if (!pRecorder) return aTotals;
    aTotals.qwTaken += pRecorder->GetBytes();
    aTotals.qwStored += pRecorder->CountStoredBytes();
    aTotals.qwLost += pRecorder->CountLostBytes();
    aTotals.qwPieces += pRecorder->GetPieces();
    return aTotals;
}

Sources MakeSources(const tagRecordOptions& aOptions) {
    Sources vecSources;
    std::set<std::string> setNames, setInputs;
    for (const std::string& strStream : aOptions.vecStreams) {
        const std::size_t nEqual = strStream.find('=');
        if (nEqual == std::string::npos || nEqual + 1 == strStream.size())
            throw CFailure("--stream " + strStream + ": expected STREAM=FILE", Exit_Usage);
        const tagFileDescriber aDescriber = RequireStream(strStream.substr(0, nEqual));
        const std::string strInput = strStream.substr(nEqual + 1);
        if (!setNames.insert(StreamName(aDescriber)).second)
            throw CFailure("the stream " + StreamName(aDescriber) + " is given twice", Exit_Usage);
        if (!setInputs.insert(strInput).second && strInput == "-")
            throw CFailure("only one stream can be read from standard input", Exit_Usage);
        vecSources.push_back(std::make_unique<tagSource>(aDescriber, strInput));
    }
    return vecSources;
}

void OpenInputs(const Sources& vecSources) {
    for (const auto& pSource : vecSources)
        if (!pSource->aInput.Open(pSource->strPath))
            throw CFailure("cannot open " + Printable(pSource->strPath) + ": " +
                           std::strerror(errno));
}

void RequireNothingOverwritten(const Sources& vecSources, bool bReplace) {
    for (const auto& pTarget : vecSources)
        for (const auto& pInput : vecSources)
            if (pTarget->pRecorder && pInput->aInput.IsFile(pTarget->pRecorder->GetPath()))
                throw CFailure(Printable(pInput->strPath) + " would be overwritten");
    for (const auto& pTarget : vecSources)
        if (pTarget->pRecorder) RequireFree(pTarget->pRecorder->GetPath(), bReplace);
}

void LockDirectory(const tagPlan& aPlan, std::optional<System::CFileLock>& aLock) {
    const std::filesystem::path aDirectory = System::NativePath(aPlan.Directory());
    std::error_code aError;
    std::filesystem::create_directories(aDirectory, aError);
    if (!std::filesystem::is_directory(aDirectory))
        throw CFailure("cannot create the directory " + Printable(aPlan.Directory()) +
                       (aError ? ": " + aError.message() : ""));
    const auto aOutcome = TakeRecordingLock(aDirectory, aLock);
    if (aOutcome == System::CFileLock::Held)
        throw CFailure("another process is recording into " + Printable(aPlan.Directory()));
    if (aOutcome == System::CFileLock::Unknown)
        Warn(Printable(aPlan.Directory()) +
             " cannot be locked against other recorders: " + std::strerror(errno));
}

CRecordFiles::CRecordFiles(const tagRecordOptions& aOptions, const Sources& vecSources)
    : m_vecSources(vecSources) {
    for (const auto& pSource : vecSources) {
        if (!pSource->pRecorder) continue;
        const std::filesystem::path aPath = pSource->pRecorder->GetPath();
        pSource->bFileMade = System::MakeNewFile(aPath);
        if (pSource->bFileMade || (aOptions.bForce && errno == EEXIST)) continue;
        const std::string strReason = std::strerror(errno);
        RemoveUnused();
        RequireFree(aPath, aOptions.bForce);
        throw CFailure("cannot write " + Printable(aPath.u8string()) + ": " + strReason);
    }
}

void CRecordFiles::RemoveUnused() const {
    std::error_code aIgnored;
    for (const auto& pSource : m_vecSources)
        if (pSource->pRecorder && pSource->bFileMade && !pSource->bRecorded &&
            pSource->pRecorder->CountStoredBytes() == 0)
            std::filesystem::remove(pSource->pRecorder->GetPath(), aIgnored);
}

std::uint64_t CountInput(const Sources& vecSources) {
    std::uint64_t qwTotal = 0;
    for (const auto& pSource : vecSources) {
        const std::optional<std::uint64_t> qwUnread = pSource->aInput.CountUnread();
        if (!qwUnread) return 0;
        qwTotal += *qwUnread;
    }
    return qwTotal;
}

void WarnOfUnpackable(const Sources& vecSources, bool bSplit) {
    for (const auto& pSource : vecSources) {
        const std::string strFault = PackFault(pSource->aDescriber, c_dwEntryFileHeaderSize);
        if (!strFault.empty()) Warn(pSource->Name() + " cannot be packed later: " + strFault);
        if (!bSplit) pSource->WarnOnceOfSize(pSource->aInput.CountUnread().value_or(0));
    }
}
