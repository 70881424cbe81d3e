#pragma once

#include <functional>
#include <string>
#include <thread>

#include "core/FileOpSink.h"

/// A host's sink that records its calls: "Open 0, Write 4003, Data 40". It checks that every call
/// is on the thread that created it.
class SinkLog final : public IFileOpSink {
 public:
    void OnFileOpStatus(CCacheFileManager::LinkType aLinkType, CCacheFileManager::OpType aOpType,
                        CmInt32 aResult) override;
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength,
                     const tagDataInfo& aDataInfo) override;

    /// Returns the calls since the last Take.
    std::string Take();

    std::function<void()> m_onStatus;  ///< runs inside the next status callback
    std::string m_strData;             ///< the bytes of the last data callback
    tagDataInfo m_dataInfo{};          ///< the info of the last data callback

 private:
    void Add(const std::string& strEntry);

    const std::thread::id m_thread = std::this_thread::get_id();
    std::string m_strLog;
};
