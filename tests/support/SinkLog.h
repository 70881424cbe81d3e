#pragma once

#include <functional>
#include <string>
#include <thread>

#include "core/FileOpSink.h"

/// A host's sink that writes down what it is told: "Open 0, Write 4003, Data 40". It checks that
/// every call comes on the thread that made it.
class SinkLog final : public IFileOpSink {
 public:
    void OnFileOpStatus(CCacheFileManager::LinkType aLinkType, CCacheFileManager::OpType aOpType,
                        CmInt32 aResult) override;
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength,
                     const tagDataInfo& aDataInfo) override;

    /// What was told since the last call.
    std::string Take();

    std::function<void()> m_onStatus;  ///< what to do inside the next status callback
    std::function<void()> m_onData;    ///< what to do inside the next delivery
    std::string m_strData;             ///< the bytes of the last delivery
    tagDataInfo m_dataInfo{};          ///< its info

 private:
    void Add(const std::string& strEntry);

    const std::thread::id m_thread = std::this_thread::get_id();
    std::string m_strLog;
};

/// A counted receiver, as a handler is one, that passes everything on to a log.
class TestReceiver final : public IFileOpStatus {
 public:
    explicit TestReceiver(SinkLog& aLog) : m_log(aLog) {}
    void OnFileOpStatus(CCacheFileManager::LinkType aLinkType, CCacheFileManager::OpType aOpType,
                        CmInt32 aResult) override {
        m_log.OnFileOpStatus(aLinkType, aOpType, aResult);
    }
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength,
                     const tagDataInfo& aDataInfo) override {
        m_log.OnDataReady(lpData, dwLength, aDataInfo);
    }
    CmInt32 GetFileStatus(CCacheFileManager::LinkType) override { return 0; }

 private:
    SinkLog& m_log;
};
