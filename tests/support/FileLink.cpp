#include "tests/support/FileLink.h"

void LinkScript::FailAll(const std::string& strPrefix, CmInt32 lCode) {
    aFault = [=](const std::string& strCall) {
        return strCall.compare(0, strPrefix.size(), strPrefix) == 0 ? lCode : CACHE_OK;
    };
}

CmInt32 LinkScript::Note(const std::string& strCall) {
    strLog += strCall + "\n";
    return aFault ? aFault(strCall) : CmInt32{CACHE_OK};
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
