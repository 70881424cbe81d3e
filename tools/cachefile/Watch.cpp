#include "tools/cachefile/Watch.h"

#include <chrono>
#include <map>

#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Limits.h"
#include "tools/cachefile/Notes.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/Recording.h"
#include "tools/cachefile/Status.h"
#include "tools/cachefile/System.h"

namespace {

constexpr int c_nInterval = 1000;  // milliseconds
constexpr char c_szClearTerminal[] = "\x1b[H\x1b[J";

/// One watch. Lives on the stack.
class CWatch {
 public:
    explicit CWatch(const tagInfoOptions& aOptions)
        : m_options(aOptions), m_directory(System::NativePath(aOptions.strPath)) {}

    void Run() {
        std::vector<bool> vecNone;
        for (;;) {
            // Looked at before the sizes, so that the last ones shown are the final ones.
            const bool bHeld = System::CFileLock::IsHeld(m_directory / c_szRecordingLock);
            Show(LoadDirectory(m_options.strPath), bHeld);
            FinishOutput();
            if (!bHeld || IsOutputClosed()) return;
            System::WaitForInputs({}, -1, c_nInterval, vecNone);
            if (System::IsInterrupted()) throw Interrupted();
        }
    }

 private:
    using Clock = std::chrono::steady_clock;

    void Show(const tagRecording& aRecording, bool bHeld) {
        const Clock::time_point aNow = Clock::now();
        const double dSeconds = std::chrono::duration<double>(aNow - m_last).count();
        const auto aRate = [&](const tagStream& aStream) {
            const auto it = m_mapBytes.find(aStream.Name());
            const bool bGrown = it != m_mapBytes.end() && aStream.qwExtent > it->second;
            return bGrown ? static_cast<double>(aStream.qwExtent - it->second) / dSeconds : 0;
        };
        const auto aStatus = bHeld ? LoadStatus(m_directory) : std::nullopt;
        if (m_options.bJson)
            PrintJson(aRecording, bHeld, aStatus, aRate);
        else
            PrintText(aRecording, bHeld, aStatus, aRate);
        m_last = aNow;
        for (const tagStream& aStream : aRecording.vecStreams)
            m_mapBytes[aStream.Name()] = aStream.qwExtent;
    }

    template <class Rate>
    void PrintJson(const tagRecording& aRecording, bool bHeld,
                   const std::optional<tagStatus>& aStatus, Rate aRate) const {
        const auto qwFree = FreeSpace(m_directory);
        Json aDocument = NewDocument("watch");
        aDocument["path"] = m_options.strPath;
        aDocument["being_recorded"] = bHeld;
        aDocument["free_bytes"] = qwFree ? Json(*qwFree) : Json(nullptr);
        const auto aAdd = [&](Json& aJson, const tagStatusBytes& aBytes) {
            aJson["pending_bytes"] = aStatus ? Json(aBytes.qwPending) : Json(nullptr);
            aJson["lost_bytes"] = aStatus ? Json(aBytes.qwLost) : Json(nullptr);
        };
        const tagStatus aShown = aStatus.value_or(tagStatus{});
        aAdd(aDocument, aShown.aTotal);
        aDocument["streams"] = Json::array();
        for (const tagStream& aStream : aRecording.vecStreams) {
            Json aJson = {{"stream", aStream.Name()},
                          {"bytes", aStream.qwExtent},
                          {"bytes_per_second", static_cast<std::uint64_t>(aRate(aStream))}};
            aAdd(aJson, aShown.Find(aStream.Name()));
            aDocument["streams"].push_back(std::move(aJson));
        }
        Print(aDocument.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
    }

    template <class Rate>
    void PrintText(const tagRecording& aRecording, bool bHeld,
                   const std::optional<tagStatus>& aStatus, Rate aRate) const {
        const auto qwFree = FreeSpace(m_directory);
        if (System::IsOutputTerminal()) Print(c_szClearTerminal);
        Print(Printable(m_options.strPath) + (bHeld ? " is being recorded, " : ", ") +
              ByteSize(static_cast<double>(aRecording.qwSize)) +
              (qwFree ? ", " + ByteSize(static_cast<double>(*qwFree)) + " free" : "") + "\n");
        CTable aTable({{"STREAM", CTable::Left},
                       {"BYTES", CTable::Right},
                       {"RATE", CTable::Right},
                       {"PENDING", CTable::Right},
                       {"LOST", CTable::Right}});
        for (const tagStream& aStream : aRecording.vecStreams) {
            const tagStatusBytes aBytes =
                aStatus ? aStatus->Find(aStream.Name()) : tagStatusBytes{};
            const std::string strPending = aStatus ? std::to_string(aBytes.qwPending) : "-";
            const std::string strLost = aStatus ? std::to_string(aBytes.qwLost) : "-";
            aTable.Add({aStream.Name(),
                        std::to_string(aStream.qwExtent),
                        ByteSize(aRate(aStream)) + "/s",
                        strPending,
                        {strLost, aBytes.qwLost ? Style::Red : Style::Plain}});
        }
        aTable.Print();
    }

    const tagInfoOptions& m_options;
    const std::filesystem::path m_directory;
    Clock::time_point m_last = Clock::now();
    std::map<std::string, std::uint64_t> m_mapBytes;  // at the last time
};

}  // namespace

int Watch(const tagInfoOptions& aOptions) {
    CWatch(aOptions).Run();
    return Exit_Done;
}
