#include "tests/support/SinkLog.h"

#include <gtest/gtest.h>

#include <utility>

void SinkLog::OnFileOpStatus(CCacheFileManager::LinkType aLinkType,
                             CCacheFileManager::OpType aOpType, CmInt32 aResult) {
    static const char* const s_aNames[] = {"?", "Open", "Close", "Read", "Write"};
    std::string strEntry = s_aNames[aOpType];
    if (aLinkType != CCacheFileManager::Link_Local) strEntry += "@" + std::to_string(aLinkType);
    Add(strEntry + " " + std::to_string(aResult));
    if (const auto onStatus = std::exchange(m_onStatus, nullptr)) onStatus();
}

void SinkLog::OnDataReady(unsigned char* lpData, CmUint32 dwLength, const tagDataInfo& aDataInfo) {
    Add("Data " + std::to_string(dwLength));
    m_strData.assign(reinterpret_cast<const char*>(lpData), dwLength);
    m_dataInfo = aDataInfo;
    delete[] lpData;
}

void SinkLog::Add(const std::string& strEntry) {
    EXPECT_EQ(std::this_thread::get_id(), m_thread) << strEntry;
    m_strLog += (m_strLog.empty() ? "" : ", ") + strEntry;
}

std::string SinkLog::Take() { return std::exchange(m_strLog, {}); }
