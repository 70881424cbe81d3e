#include "tests/support/FileLink.h"

#include <utility>

std::string LinkScript::Take() {
    std::lock_guard<std::mutex> aLock(m_mutex);
    return std::exchange(m_strLog, {});
}

void LinkScript::FailAll(const std::string& strPrefix, CmInt32 lCode) {
    m_fault = [=](const std::string& strCall, int) {
        return strCall.compare(0, strPrefix.size(), strPrefix) == 0 ? lCode : 0;
    };
}

CmInt32 LinkScript::Note(const std::string& strCall, bool bCanFail) {
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        m_strLog += strCall + "\n";
    }
    m_thread = std::this_thread::get_id();
    if (!bCanFail) return CACHE_OK;
    ++m_nCalls;
    return m_fault ? m_fault(strCall, m_nCalls) : CmInt32{CACHE_OK};
}

CmInt32 FileLink::Open(const CCmString& strPath, int bWrite) {
    m_strPath = strPath;
    if (const CmInt32 l = m_script.Note("Open " + strPath + " " + std::to_string(bWrite))) return l;
    return m_pBelow ? m_pBelow->Open(strPath, bWrite) : CmInt32{CACHE_OK};
}

CmInt32 FileLink::Close() {
    if (const CmInt32 lResult = m_script.Note("Close")) return lResult;
    return m_pBelow ? m_pBelow->Close() : CmInt32{CACHE_OK};
}

CmInt32 FileLink::WriteData(const CCmString& strData, CmUint32 dwOffset) {
    const std::string strShown =
        strData.size() > 16 ? "<" + std::to_string(strData.size()) + ">" : strData;
    const bool bEnd = dwOffset == CCacheFileManager::GetMaxDword();
    if (const CmInt32 lResult =
            m_script.Note("Write " + strShown + "@" + (bEnd ? "end" : std::to_string(dwOffset))))
        return lResult;
    return m_pBelow ? m_pBelow->WriteData(strData, dwOffset) : CmInt32{CACHE_OK};
}

CmInt32 FileLink::ReadData(unsigned char* lpBuffer, CmUint32 dwOffset, CmUint32& dwLength) {
    if (const CmInt32 lResult =
            m_script.Note("Read " + std::to_string(dwLength) + "@" + std::to_string(dwOffset)))
        return lResult;
    if (m_pBelow) return m_pBelow->ReadData(lpBuffer, dwOffset, dwLength);
    dwLength = 0;
    return CACHE_OK;
}

CmInt32 FileLink::AsyncReadData(const tagDataInfo& /*aDataInfo*/, unsigned char* lpBuffer,
                                CmUint32 dwOffset, CmUint32& dwLength) {
    return ReadData(lpBuffer, dwOffset, dwLength);
}

void FileLink::Flush() {
    m_script.Note("Flush", false);
    if (m_pBelow) m_pBelow->Flush();
}
