#pragma once

#include <memory>
#include <string>

#include "tools/cachefile/OutputFile.h"
#include "tools/cachefile/Recording.h"

/// The path that stands for standard input.
constexpr char c_szStandardInput[] = "-";

/// A recording that a command only shows. For the path "-" it is a container that is read from
/// standard input into a temporary file, which is removed with the object. Lives on the stack of
/// the command. The constructor throws CFailure, and Interrupted.
class CShownRecording {
 public:
    explicit CShownRecording(const std::string& strPath);

    const tagRecording& Get() const { return m_recording; }

 private:
    std::unique_ptr<CPartialName> m_pTemporary;  // freed after m_recording has closed the file
    tagRecording m_recording;
};
