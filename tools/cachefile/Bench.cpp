#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>

#include "platform/CmCallerThread.h"
#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/Player.h"
#include "tools/cachefile/Recorder.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

namespace {

std::uint64_t CountBytes(const tagBenchOptions& aOptions) { return aOptions.qwMebibytes << 20; }

constexpr tagFileDescriber c_aStream{4, 4, 1004, 0};

/// A directory that exists only during the measurement.
class CScratch {
 public:
    explicit CScratch(const std::string& strParent)
        : m_path((strParent.empty() ? std::filesystem::temp_directory_path()
                                    : System::NativePath(strParent)) /
                 ("cachefile-bench." + std::to_string(System::ProcessNumber()))) {
        std::error_code aError;
        if (!std::filesystem::create_directory(m_path, aError))
            throw CFailure("cannot create a directory for the measurement: " + aError.message());
    }
    ~CScratch() {
        std::error_code aIgnored;
        std::filesystem::remove_all(m_path, aIgnored);
    }
    CScratch(const CScratch&) = delete;
    CScratch& operator=(const CScratch&) = delete;

    std::string Path() const { return m_path.string(); }
    std::string StdioFile() const { return (m_path / "stdio").string(); }

 private:
    const std::filesystem::path m_path;
};

/// One kind of work that is measured.
struct tagMeasured {
    const char* lpWhat;
    const char* lpWith;
    std::function<void()> aRun;
    double dSeconds = 0;  // the best of the rounds
};

class CBench {
 public:
    explicit CBench(const tagBenchOptions& aOptions)
        : m_options(aOptions),
          m_scratch(aOptions.strDirectory),
          m_vecPiece(aOptions.nPiece, 0x5A),
          m_vecMeasured{{"append", "library, synchronous", [this] { Append(1, true); }},
                        {"append", "library, asynchronous", [this] { Append(2, false); }},
                        {"append", "stdio", [this] { AppendStdio(); }},
                        {"read", "library, synchronous", [this] { Read(); }},
                        {"read", "stdio", [this] { ReadStdio(); }}} {}

    const std::vector<tagMeasured>& Run() {
        for (int nRound = 0; nRound < m_options.nRounds; ++nRound)
            for (tagMeasured& aMeasured : m_vecMeasured) {
                if (System::IsInterrupted()) throw Interrupted();
                const auto aBegin = std::chrono::steady_clock::now();
                aMeasured.aRun();
                const std::chrono::duration<double> aTook =
                    std::chrono::steady_clock::now() - aBegin;
                if (nRound == 0 || aTook.count() < aMeasured.dSeconds)
                    aMeasured.dSeconds = aTook.count();
            }
        return m_vecMeasured;
    }

 private:
    void Append(CmUint32 dwRecordID, bool bSync) {
        const tagPlan aPlan{dwRecordID, m_scratch.Path(), bSync};
        CRecorder aRecorder(aPlan, c_aStream);
        {
            const Shutdown aShutdown;
            if (aRecorder.Open() == CACHE_OK) {
                ForEachPiece([&](std::uint64_t, std::size_t nLength) {
                    aRecorder.Write(m_vecPiece.data(), nLength);
                    HoldBack();
                });
                aRecorder.Close();
            }
        }
        if (aRecorder.GetFailure() != CACHE_OK)
            throw CFailure(ResultText("cannot append", aRecorder.GetFailure()));
    }

    void Read() {
        const tagRecording aRecording = LoadDirectory(m_scratch.Path() + "/1");
        CPlayer aPlayer(aRecording, &c_aStream);
        ForEachPiece([&](std::uint64_t qwAt, std::size_t nLength) {
            const auto dwLength = static_cast<CmUint32>(nLength);
            if (aPlayer.Read(c_aStream, qwAt, dwLength) != CACHE_OK ||
                aPlayer.GetLength() != dwLength)
                throw CFailure("cannot read what was appended");
        });
    }

    void AppendStdio() {
        std::FILE* const pFile = std::fopen(m_scratch.StdioFile().c_str(), "wb");
        bool bGood = pFile != nullptr;
        ForEachPiece([&](std::uint64_t, std::size_t nLength) {
            bGood = bGood && std::fwrite(m_vecPiece.data(), 1, nLength, pFile) == nLength;
        });
        RequireStdio(pFile, bGood);
    }

    void ReadStdio() {
        std::FILE* const pFile = std::fopen(m_scratch.StdioFile().c_str(), "rb");
        bool bGood = pFile != nullptr;
        ForEachPiece([&](std::uint64_t, std::size_t nLength) {
            bGood = bGood && std::fread(m_vecPiece.data(), 1, nLength, pFile) == nLength;
        });
        RequireStdio(pFile, bGood);
    }

    static void RequireStdio(std::FILE* pFile, bool bGood) {
        const bool bClosed = pFile && std::fclose(pFile) == 0;
        if (!bGood || !bClosed)
            throw CFailure(std::string("stdio failed: ") + std::strerror(errno));
    }

    template <class Work>
    void ForEachPiece(Work aWork) {
        for (std::uint64_t qwAt = 0; qwAt < CountBytes(m_options); qwAt += m_options.nPiece) {
            if (System::IsInterrupted()) throw Interrupted();
            aWork(qwAt, static_cast<std::size_t>(std::min<std::uint64_t>(
                            m_options.nPiece, CountBytes(m_options) - qwAt)));
        }
    }

    const tagBenchOptions& m_options;
    const CScratch m_scratch;
    std::vector<unsigned char> m_vecPiece;
    std::vector<tagMeasured> m_vecMeasured;
};

double Rate(const tagBenchOptions& aOptions, const tagMeasured& aMeasured) {
    return static_cast<double>(CountBytes(aOptions)) / 1e6 / std::max(aMeasured.dSeconds, 1e-9);
}

/// The library's rate divided by the rate of stdio for the same work.
double Ratio(const tagMeasured& aMeasured, const std::vector<tagMeasured>& vecAll) {
    for (const tagMeasured& aOther : vecAll)
        if (std::strcmp(aOther.lpWith, "stdio") == 0 &&
            std::strcmp(aOther.lpWhat, aMeasured.lpWhat) == 0)
            return aOther.dSeconds / std::max(aMeasured.dSeconds, 1e-9);
    return 0;
}

void PrintText(const tagBenchOptions& aOptions, const std::vector<tagMeasured>& vecAll) {
    CTable aTable({{"WHAT", CTable::Left},
                   {"WITH", CTable::Left},
                   {"SECONDS", CTable::Right},
                   {"MB/S", CTable::Right},
                   {"RATIO", CTable::Right}});
    for (const tagMeasured& aMeasured : vecAll)
        aTable.Add({aMeasured.lpWhat, aMeasured.lpWith, Decimal(aMeasured.dSeconds, 3),
                    Decimal(Rate(aOptions, aMeasured), 0), Decimal(Ratio(aMeasured, vecAll), 2)});
    Print(Grouped(CountBytes(aOptions)) + " bytes in pieces of " + Grouped(aOptions.nPiece) +
          ", best of " + std::to_string(aOptions.nRounds) +
          "; ratio: rate divided by that of stdio\n\n");
    aTable.Print();
}

void PrintJson(const tagBenchOptions& aOptions, const std::vector<tagMeasured>& vecAll) {
    Json aDocument = NewDocument("bench");
    aDocument["bytes"] = CountBytes(aOptions);
    aDocument["piece"] = aOptions.nPiece;
    aDocument["rounds"] = aOptions.nRounds;
    aDocument["results"] = Json::array();
    for (const tagMeasured& aMeasured : vecAll)
        aDocument["results"].push_back({{"what", aMeasured.lpWhat},
                                        {"with", aMeasured.lpWith},
                                        {"seconds", aMeasured.dSeconds},
                                        {"mb_per_second", Rate(aOptions, aMeasured)},
                                        {"ratio", Ratio(aMeasured, vecAll)}});
    PrintDocument(aDocument);
}

}  // namespace

int Bench(const tagBenchOptions& aOptions) {
    const CCmCallerThreadGuard aCallerThread;
    CBench aBench(aOptions);
    const std::vector<tagMeasured>& vecAll = aBench.Run();
    if (aOptions.bJson)
        PrintJson(aOptions, vecAll);
    else
        PrintText(aOptions, vecAll);
    return Exit_Done;
}
