#pragma once

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "core/DataInfo.h"

/// One stream to be recorded: bytes that come in pieces, the same ones each time it is gone
/// through. No more than a piece is held at a time. Failures are CDemoErrors.
class ISource {
 public:
    virtual ~ISource() = default;

    /// What the user calls it.
    const std::string& GetName() const { return m_strName; }

    /// What the library calls it: type, kind and id decide the name of its record file and its
    /// place in a container.
    const tagFileDescriber& GetDescriber() const { return m_describer; }

    /// How many bytes all pieces have together.
    virtual std::uint64_t GetSize() const = 0;

    /// Begins again with the first piece.
    virtual void Rewind() = 0;

    /// Gives the next piece; false at the end.
    virtual bool Next(std::string& strPiece) = 0;

 protected:
    ISource(std::string strName, const tagFileDescriber& aDescriber)
        : m_strName(std::move(strName)), m_describer(aDescriber) {}

 private:
    const std::string m_strName;
    const tagFileDescriber m_describer;
};

using Sources = std::vector<std::unique_ptr<ISource>>;

/// Ten seconds of sound, 48 kHz, stereo, 16 bits: a WAV header, then pieces of 20 ms.
class CSoundSource final : public ISource {
 public:
    explicit CSoundSource(CmUint32 dwNumber);
    std::uint64_t GetSize() const override;
    void Rewind() override { m_nNext = 0; }
    bool Next(std::string& strPiece) override;

 private:
    int m_nNext = 0;  // 0 is the header
};

/// A conversation; each line is a piece.
class CChatSource final : public ISource {
 public:
    explicit CChatSource(CmUint32 dwNumber);
    std::uint64_t GetSize() const override { return m_qwSize; }
    void Rewind() override { m_nNext = 0; }
    bool Next(std::string& strPiece) override;

 private:
    int m_nNext = 0;
    std::uint64_t m_qwSize = 0;
};

/// A file, in pieces of 64 KiB. What is appended to it after it was opened doesn't count.
class CFileSource final : public ISource {
 public:
    CFileSource(const std::string& strPath, CmUint32 dwNumber);
    std::uint64_t GetSize() const override { return m_qwSize; }
    void Rewind() override;
    bool Next(std::string& strPiece) override;

 private:
    const std::string m_strPath;
    std::uint64_t m_qwSize = 0;
    std::uint64_t m_qwGiven = 0;
    std::ifstream m_file;
};

/// Sound, chat and an archive of the project.
Sources MakeOwnSources(const std::string& strArchive);

/// One for each file.
Sources MakeFileSources(const std::vector<std::string>& vecPaths);
