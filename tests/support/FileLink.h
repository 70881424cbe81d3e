#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "fileop/FileOperation.h"

/// What passes through a FileLink, and what is to fail there. Outlives the link.
struct LinkScript {
    /// The calls since the last Take, one a line: "Open .\a 1", "Write abc@0", "Write <40000>@end",
    /// "Read 100@60", "Flush", "Close".
    std::string Take();

    /// Given a call as above and its number from 1 on (Flush can't fail and has none), a code other
    /// than 0 fails it without its reaching the link below.
    using Fault = std::function<CmInt32(const std::string& strCall, int nCall)>;

    /// From the next call on, on whatever thread it runs.
    void Fail(Fault aFault);

    /// Fails every call that begins with strPrefix.
    void FailAll(const std::string& strPrefix, CmInt32 lCode);

    CmInt32 Note(const std::string& strCall);

    std::thread::id m_thread;  ///< where the last call ran
    bool m_bGone = false;      ///< the link has ended

 private:
    std::mutex m_mutex;
    // All guarded by m_mutex.
    std::string m_strLog;
    Fault m_fault;
    int m_nCalls = 0;
};

/// A link of the chain that writes down the calls and can fail them. Without a link below it every
/// other call succeeds and does nothing.
class FileLink final : public IFileOperation {
 public:
    FileLink(LinkScript& aScript, IFileOperation* pBelow) : m_script(aScript), m_pBelow(pBelow) {}
    ~FileLink() override { m_script.m_bGone = true; }

    CmInt32 Open(const CCmString& strPath, int bWrite) override;
    CmInt32 Close() override;
    CmInt32 WriteData(const CCmString& strData, CmUint32 dwOffset) override;
    CmInt32 ReadData(unsigned char* lpBuffer, CmUint32 dwOffset, CmUint32& dwLength) override;
    CmInt32 AsyncReadData(const tagDataInfo& /*aDataInfo*/, unsigned char* lpBuffer,
                          CmUint32 dwOffset, CmUint32& dwLength) override {
        return ReadData(lpBuffer, dwOffset, dwLength);
    }
    const CCmString& GetFileName() override { return m_strPath; }
    void Flush() override;

 private:
    LinkScript& m_script;
    const CRefPtr<IFileOperation> m_pBelow;
    CCmString m_strPath;
};
