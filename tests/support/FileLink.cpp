#include "tests/support/FileLink.h"

#include <utility>

std::string LinkScript::Take() {
    std::lock_guard<std::mutex> aLock(m_mutex);
    return std::exchange(m_strLog, {});
}

void LinkScript::Fail(Fault aFault) {
    std::lock_guard<std::mutex> aLock(m_mutex);
    m_fault = std::move(aFault);
}

void LinkScript::FailAll(const std::string& strPrefix, CmInt32 lCode) {
    Fail([=](const std::string& strCall, int) {
        return strCall.compare(0, strPrefix.size(), strPrefix) == 0 ? lCode : 0;
    });
}

CmInt32 LinkScript::Note(const std::string& strCall) {
    std::lock_guard<std::mutex> aLock(m_mutex);
    m_strLog += strCall + "\n";
    m_thread = std::this_thread::get_id();
    return m_fault && strCall != "Flush" ? m_fault(strCall, ++m_nCalls) : CmInt32{CACHE_OK};
}

CmInt32 FileLink::Open(const CCmString& strPath, int bWrite) {
    m_strPath = strPath;
    const CmInt32 lFault = m_script.Note("Open " + strPath + " " + std::to_string(bWrite));
    return lFault || !m_pBelow ? lFault : m_pBelow->Open(strPath, bWrite);
}

CmInt32 FileLink::Close() {
    const CmInt32 lFault = m_script.Note("Close");
    return lFault || !m_pBelow ? lFault : m_pBelow->Close();
}

CmInt32 FileLink::WriteData(const CCmString& strData, CmUint32 dwOffset) {
    const CmInt32 lFault = m_script.Note(
        "Write " + (strData.size() > 16 ? "<" + std::to_string(strData.size()) + ">" : strData) +
        "@" + (dwOffset == 0xFFFFFFFF ? "end" : std::to_string(dwOffset)));
    return lFault || !m_pBelow ? lFault : m_pBelow->WriteData(strData, dwOffset);
}

CmInt32 FileLink::ReadData(unsigned char* lpBuffer, CmUint32 dwOffset, CmUint32& dwLength) {
    const CmInt32 lFault =
        m_script.Note("Read " + std::to_string(dwLength) + "@" + std::to_string(dwOffset));
    return lFault || !m_pBelow ? lFault : m_pBelow->ReadData(lpBuffer, dwOffset, dwLength);
}

void FileLink::Flush() {
    m_script.Note("Flush");
    if (m_pBelow) m_pBelow->Flush();
}
