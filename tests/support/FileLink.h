#pragma once

#include <functional>
#include <string>
#include <utility>

#include "fileop/FileOperation.h"

/// The calls of a FileLink, and which of them must fail. Outlives the link. For one thread.
struct LinkScript {
    /// The calls since the last Take, one per line: "Open .\a 1", "Write abc@0", "Write
    /// <40000>@end", "Read 100@60", "Flush", "Close".
    std::string Take() { return std::exchange(strLog, {}); }
    /// Makes every call that begins with strPrefix fail.
    void FailAll(const std::string& strPrefix, CmInt32 lCode);
    CmInt32 Note(const std::string& strCall);

    std::string strLog;
    /// Receives a call as above. If it returns a code other than 0, the call fails with it and is
    /// not passed to the next link. (Flush cannot fail.)
    std::function<CmInt32(const std::string& strCall)> aFault;
};

/// A link of the chain that records the calls and can make them fail. If there is no next link, all
/// other calls succeed and do nothing.
class FileLink final : public IFileOperation {
 public:
    FileLink(LinkScript& aScript, IFileOperation* pBelow) : m_script(aScript), m_pBelow(pBelow) {}

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
    CmInt32 WriteBytes(const char* lpData, std::size_t nLength, CmUint32 dwOffset) override {
        return WriteData({lpData, nLength}, dwOffset);
    }
    CmInt32 GiveData(CCmString&& strData, CmUint32 dwOffset) override {
        return WriteData(strData, dwOffset);
    }

 private:
    LinkScript& m_script;
    const CRefPtr<IFileOperation> m_pBelow;
    CCmString m_strPath;
};
