#include "tools/cachefile/RecordPart.h"

#include "core/CacheFileManager.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Output.h"

namespace {

tagPlan WithNumber(tagPlan aPlan, CmUint32 dwNumber) {
    aPlan.dwRecordID = dwNumber;
    return aPlan;
}

void SetSafety(const tagRecordOptions& aOptions) {
    CCacheFileManager::SetGatherAge(aOptions.dwFlush);
    if (CCacheFileManager::SetSyncInterval(aOptions.dwSync) != CACHE_OK)
        Warn("the recording is not synced to the disk: the thread for it cannot be started");
}

}  // namespace

CRecordPart::CRecordPart(const tagRecordOptions& aOptions, CmUint32 dwNumber, Sources& vecSources)
    : m_plan(WithNumber(aOptions.aPlan, dwNumber)), m_vecSources(vecSources) {
    for (const auto& pSource : vecSources)
        if (!pSource->bEnded) pSource->BeginPart(m_plan, vecSources.size());
    RequireNothingOverwritten(vecSources, aOptions.bForce);
    LockDirectory(m_plan, m_lock);
    m_status.emplace(GetDirectory(), vecSources);
    m_files.emplace(aOptions, vecSources);
    m_notes.emplace(m_plan, vecSources);
    m_notes->Open();
    m_shutdown.emplace();
    SetSafety(aOptions);
    OpenRecorders();
}

CRecordPart::~CRecordPart() = default;

void CRecordPart::OpenRecorders() const {
    for (const auto& pSource : m_vecSources) {
        if (!pSource->pRecorder) continue;
        CRecorder& aRecorder = *pSource->pRecorder;
        if (aRecorder.Open() != CACHE_OK)
            throw CFailure("cannot write " + Printable(aRecorder.GetPath().u8string()) + ": " +
                           aRecorder.GetFailureText());
        pSource->bRecorded = true;
    }
}

void CRecordPart::Close() {
    for (const auto& pSource : m_vecSources)
        if (pSource->pRecorder) pSource->pRecorder->Close();
    m_shutdown.reset();
}

bool CRecordPart::WriteNotes(const std::string& strReason) {
    m_status.reset();  // on a full disk its file leaves its space to the notes
    m_notes->Close(strReason);
    return !m_notes->HasFailed();
}

CmUint32 FindFreeNumber(const tagPlan& aPlan, CmUint32 dwNumber) {
    std::error_code aError;
    while (++dwNumber != 0) {
        const auto aPath = System::NativePath(WithNumber(aPlan, dwNumber).Directory());
        const auto aStatus = std::filesystem::symlink_status(aPath, aError);
        if (aStatus.type() == std::filesystem::file_type::not_found) return dwNumber;
    }
    throw CFailure("there is no free recording number left in " + Printable(aPlan.strHome));
}
