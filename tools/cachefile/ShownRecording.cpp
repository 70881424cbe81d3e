#include "tools/cachefile/ShownRecording.h"

#include <cerrno>
#include <cstring>
#include <vector>

#include "tools/cachefile/Exit.h"
#include "tools/cachefile/System.h"

namespace {

constexpr std::size_t c_nBlock = 1 << 20;

[[noreturn]] void ThrowErrno(const std::string& strWhat) {
    throw CFailure(strWhat + ": " + std::strerror(errno));
}

void CopyInput(System::CInput& aInput, System::CNewFile& aFile) {
    std::vector<unsigned char> vecBlock(c_nBlock);
    std::vector<bool> vecReady;
    for (;;) {
        System::WaitForInputs({&aInput}, -1, -1, vecReady);
        if (System::IsInterrupted()) throw Interrupted();
        const long long nRead = aInput.Read(vecBlock.data(), vecBlock.size());
        if (nRead == System::CInput::Read_End) return;
        if (nRead == System::CInput::Read_Failed) ThrowErrno("cannot read standard input");
        if (nRead > 0 && !aFile.Write(vecBlock.data(), static_cast<std::size_t>(nRead)))
            ThrowErrno("cannot write a temporary file");
    }
}

/// The file must not be open any more when the library reads it.
void CopyInputTo(const std::filesystem::path& aPath) {
    System::CInput aInput;
    System::CNewFile aFile;
    if (!aInput.Open(c_szStandardInput)) ThrowErrno("cannot read standard input");
    if (!aFile.Create(aPath)) ThrowErrno("cannot create a temporary file");
    CopyInput(aInput, aFile);
    if (!aFile.Close()) ThrowErrno("cannot write a temporary file");
}

}  // namespace

CShownRecording::CShownRecording(const std::string& strPath) {
    if (strPath != c_szStandardInput) {
        m_recording = RequireRecording(strPath);
        return;
    }
    std::error_code aError;
    const auto aName = std::filesystem::temp_directory_path(aError) / "cachefile";
    if (aError) throw CFailure("there is no directory for temporary files: " + aError.message());
    RemoveAbandoned(aName);
    m_pTemporary = std::make_unique<CPartialName>(aName);
    CopyInputTo(m_pTemporary->GetPath());
    m_recording = LoadRecording(m_pTemporary->GetPath().string());
    if (m_recording.pIndex->GetEndOfWalk() == CContainerIndex::Walk_None)
        throw CFailure("standard input is not a container");
    m_recording.strPath = strPath;
}
