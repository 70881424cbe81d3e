#include "tools/demo/Source.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "core/CacheFileManager.h"
#include "tools/demo/DemoError.h"

namespace {

constexpr std::uint32_t c_nRate = 48000;
constexpr std::uint16_t c_nChannels = 2;
constexpr std::uint16_t c_nSampleBytes = 2;
constexpr std::uint32_t c_nFrameBytes = c_nChannels * c_nSampleBytes;
constexpr std::uint32_t c_nSeconds = 10;
constexpr std::uint32_t c_nPieceFrames = c_nRate / 50;
constexpr std::uint32_t c_nSoundBytes = c_nSeconds * c_nRate * c_nFrameBytes;
constexpr int c_nSoundPieces = c_nSeconds * c_nRate / c_nPieceFrames;
constexpr std::uint32_t c_nWavHeaderBytes = 44;

constexpr int c_nChatLines = 400;
constexpr std::uint64_t c_qwFilePiece = 64 * 1024;

/// The n-th stream of a type: its id as the library composes it.
tagFileDescriber Describe(std::uint16_t wDataType, std::uint8_t byFileType, CmUint32 dwNumber) {
    const CmUint32 dwMagic = CCacheFileManager::Instance().GetFileIDMagicNumber();
    return tagFileDescriber{wDataType, byFileType, dwNumber * dwMagic + wDataType, 0};
}

/// Appends the low bytes of nValue, the lowest first.
void AppendNumber(std::string& strBytes, std::uint32_t nValue, int nBytes) {
    for (int nByte = 0; nByte < nBytes; ++nByte)
        strBytes += static_cast<char>(nValue >> (8 * nByte) & 0xFF);
}

std::string WavHeader() {
    std::string strHeader = "RIFF";
    AppendNumber(strHeader, c_nWavHeaderBytes - 8 + c_nSoundBytes, 4);
    strHeader += "WAVEfmt ";
    AppendNumber(strHeader, 16, 4);
    AppendNumber(strHeader, 1, 2);  // plain samples
    AppendNumber(strHeader, c_nChannels, 2);
    AppendNumber(strHeader, c_nRate, 4);
    AppendNumber(strHeader, c_nRate * c_nFrameBytes, 4);
    AppendNumber(strHeader, c_nFrameBytes, 2);
    AppendNumber(strHeader, 8 * c_nSampleBytes, 2);
    strHeader += "data";
    AppendNumber(strHeader, c_nSoundBytes, 4);
    return strHeader;
}

void AppendTone(std::string& strBytes, std::uint32_t nFrame, double dHertz) {
    const double dPhase = 2 * 3.14159265358979 * dHertz * nFrame / c_nRate;
    const long nSample = std::lround(8000 * std::sin(dPhase));
    AppendNumber(strBytes, static_cast<std::uint32_t>(nSample), c_nSampleBytes);
}

std::string ChatLine(int nLine) {
    static constexpr std::array<const char*, 3> c_names = {"Ada", "Björn", "Chiyo"};
    static constexpr std::array<const char*, 5> c_texts = {
        "Can everybody hear me?", "Yes, loud and clear.", "Let us look at the next page.",
        "The figure on the left is new.", "Could you say that again, please?"};
    const unsigned nNumber = static_cast<unsigned>(nLine);
    char aTime[32];
    std::snprintf(aTime, sizeof aTime, "%02u:%02u:%02u", nNumber / 720, nNumber / 12 % 60,
                  nNumber % 12 * 5);
    return std::string(aTime) + " " + c_names[nNumber % c_names.size()] + ": " +
           c_texts[nNumber * 7 % c_texts.size()] + "\n";
}

}  // namespace

CSoundSource::CSoundSource(CmUint32 dwNumber) : ISource("sound.wav", Describe(1, 2, dwNumber)) {}

std::uint64_t CSoundSource::GetSize() const { return c_nWavHeaderBytes + c_nSoundBytes; }

bool CSoundSource::Next(std::string& strPiece) {
    if (m_nNext > c_nSoundPieces) return false;
    const int nPiece = m_nNext++;
    strPiece.clear();
    if (nPiece == 0) {
        strPiece = WavHeader();
        return true;
    }
    const std::uint32_t nFirst = static_cast<std::uint32_t>(nPiece - 1) * c_nPieceFrames;
    for (std::uint32_t nFrame = nFirst; nFrame < nFirst + c_nPieceFrames; ++nFrame) {
        AppendTone(strPiece, nFrame, 440);
        AppendTone(strPiece, nFrame, 660);
    }
    return true;
}

CChatSource::CChatSource(CmUint32 dwNumber) : ISource("chat.log", Describe(3, 2, dwNumber)) {
    for (int nLine = 0; nLine < c_nChatLines; ++nLine) m_qwSize += ChatLine(nLine).size();
}

bool CChatSource::Next(std::string& strPiece) {
    if (m_nNext >= c_nChatLines) return false;
    strPiece = ChatLine(m_nNext++);
    return true;
}

CFileSource::CFileSource(const std::string& strPath, CmUint32 dwNumber)
    : ISource(std::filesystem::path(strPath).filename().string(), Describe(4, 4, dwNumber)),
      m_strPath(strPath) {
    std::error_code aError;
    const std::filesystem::file_status aStatus = std::filesystem::status(strPath, aError);
    if (aStatus.type() == std::filesystem::file_type::not_found)
        throw CDemoError(strPath + ": there is no such file");
    if (is_directory(aStatus)) throw CDemoError(strPath + ": this is a directory");
    if (!is_regular_file(aStatus)) throw CDemoError(strPath + ": this is no regular file");
    m_qwSize = std::filesystem::file_size(strPath, aError);
    errno = 0;
    if (!aError) m_file.open(strPath, std::ios::binary);
    if (aError || !m_file.is_open())
        throw CDemoError(strPath +
                         ": can't be read: " + (aError ? aError.message() : std::strerror(errno)));
}

void CFileSource::Rewind() {
    m_file.clear();
    m_file.seekg(0);
    m_qwGiven = 0;
}

bool CFileSource::Next(std::string& strPiece) {
    const std::uint64_t qwWanted = std::min(c_qwFilePiece, m_qwSize - m_qwGiven);
    if (qwWanted == 0) return false;
    strPiece.resize(static_cast<std::size_t>(qwWanted));
    if (!m_file.read(&strPiece[0], static_cast<std::streamsize>(qwWanted)))
        throw CDemoError(m_strPath + ": can't be read to its end");
    m_qwGiven += qwWanted;
    return true;
}

Sources MakeOwnSources(const std::string& strArchive) {
    Sources vecSources;
    vecSources.push_back(std::make_unique<CSoundSource>(1));
    vecSources.push_back(std::make_unique<CChatSource>(1));
    vecSources.push_back(std::make_unique<CFileSource>(strArchive, 1));
    return vecSources;
}

Sources MakeFileSources(const std::vector<std::string>& vecPaths) {
    Sources vecSources;
    for (const std::string& strPath : vecPaths)
        vecSources.push_back(
            std::make_unique<CFileSource>(strPath, static_cast<CmUint32>(vecSources.size()) + 1));
    return vecSources;
}
