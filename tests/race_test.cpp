#include <array>
#include <atomic>
#include <chrono>
#include <map>

#include "async/FileThreadManager.h"
#include "tests/support/Player.h"

// Random operations of several write and play handlers, from the host's loop and from inside
// callbacks. Handlers, worker and library end at random times. ThreadSanitizer finds data races;
// the test itself counts every callback and every byte.

namespace {

constexpr std::size_t c_nFixture = 200'000;

class Races;

/// A handler with its sink. It counts accepted requests and callbacks. A callback after the handler
/// was destroyed, or one too many, fails the test.
class Actor : public IFileOpSink {
 public:
    Actor(Races& aRaces, unsigned nSeed) : m_races(aRaces), m_random(nSeed) {}

    virtual void Act(SeededRandom& aRandom) = 0;
    virtual void Destroy() { m_bEnded = true; }

    void OnFileOpStatus(CCacheFileManager::LinkType, CCacheFileManager::OpType aOpType,
                        CmInt32 aResult) final;
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength, const tagDataInfo& aInfo) final;

    /// All callbacks have run: none may be missing, unless the handler was destroyed before.
    void ExpectAnswered() const {
        EXPECT_TRUE(m_bEnded || m_nOpens == 0) << m_nOpens << " opens without an answer";
        EXPECT_TRUE(m_bEnded || m_nReads == 0) << m_nReads << " reads without an answer";
    }

 protected:
    void ActInside();

    Races& m_races;
    SeededRandom m_random;  // for operations inside callbacks
    bool m_bEnded = false;
    int m_nOpens = 0;  // accepted and not yet reported
    int m_nReads = 0;
};

class Races : public HostTest {
 protected:
    Races() {
        WriteBytes("kvr2/7/fixture", m_strFixture);
        CContainerWriter aWriter;
        EXPECT_EQ(AddStream(aWriter, c_aStream, m_strFixture), 0);
        EXPECT_EQ(aWriter.Write(".\\container"), 0);
        CCmT120Trace::instance()->SetSink({});  // there would be too many lines
    }

    std::shared_ptr<Actor> NewActor(SeededRandom& aRandom);
    void Step(SeededRandom& aRandom);
    void FillAndShutDown(SeededRandom& aRandom);

    /// Limits the work by time: a busy machine under a sanitizer does less.
    bool HasTime() const { return std::chrono::steady_clock::now() < m_end; }
    const std::chrono::steady_clock::time_point m_end =
        std::chrono::steady_clock::now() + std::chrono::seconds(10);

 public:
    /// Lets a random actor make a call, from the loop or from inside a callback.
    void ActOnce(SeededRandom& aRandom) {
        const std::shared_ptr<Actor> pActor = m_aActors[aRandom.Below(m_aActors.size())];
        if (pActor) pActor->Act(aRandom);
    }

    const CCmString m_strFixture = Pattern(c_nFixture);
    std::array<std::shared_ptr<Actor>, 8> m_aActors;
    std::vector<std::shared_ptr<Actor>> m_vecEnded;
    std::map<CCmString, std::size_t> m_mapHanded;  // for each file the number of accepted bytes
    int m_nInside = 0;                             // callbacks that are running
    std::uint64_t m_qwAnswers = 0;
};

void Actor::OnFileOpStatus(CCacheFileManager::LinkType, CCacheFileManager::OpType aOpType,
                           CmInt32 aResult) {
    EXPECT_FALSE(m_bEnded);
    if (aOpType == CCacheFileManager::Op_Open) {
        EXPECT_GE(--m_nOpens, 0);
        EXPECT_EQ(aResult, 0);
    }
    ActInside();
}

void Actor::OnDataReady(unsigned char* lpData, CmUint32 dwLength, const tagDataInfo& aInfo) {
    EXPECT_FALSE(m_bEnded);
    EXPECT_GE(--m_nReads, 0);
    // dwDataLen contains the offset of the read.
    const CCmString strWanted = m_races.m_strFixture.substr(aInfo.dwDataLen, dwLength);
    EXPECT_EQ(CCmString(reinterpret_cast<const char*>(lpData), dwLength), strWanted);
    delete[] lpData;
    ActInside();
}

void Actor::ActInside() {
    ++m_races.m_qwAnswers;
    if (m_races.m_nInside >= 3 || !m_random.OneIn(4)) return;
    ++m_races.m_nInside;
    SeededRandom aRandom = m_random;  // this object may be destroyed in the meantime
    if (aRandom.OneIn(20))
        CacheFileShutdown();
    else if (aRandom.OneIn(8))
        CCmCallerThread::RunPending();
    else if (aRandom.OneIn(8))
        Destroy();
    else
        for (unsigned i = aRandom.Below(4); i-- > 0;) m_races.ActOnce(aRandom);
    --m_races.m_nInside;
    m_random = aRandom;
}

class RecorderActor final : public Actor {
 public:
    RecorderActor(Races& aRaces, unsigned nSeed, Mode aMode)
        : Actor(aRaces, nSeed), m_mode(aMode), m_recording(aMode, this) {}

    void Act(SeededRandom& aRandom) override {
        if (m_bEnded) return;
        if (m_vecFiles.empty() || (m_vecFiles.size() < 12 && aRandom.OneIn(6))) return Open();
        const std::size_t nFile = aRandom.Below(m_vecFiles.size());
        if (aRandom.OneIn(12)) {
            if (m_recording->CloseFile(m_vecFiles[nFile].first) == 0)
                m_vecFiles.erase(m_vecFiles.begin() + static_cast<std::ptrdiff_t>(nFile));
        } else if (aRandom.OneIn(3)) {
            m_recording->FlushData(m_vecFiles[nFile].first);
        } else {
            Write(m_vecFiles[nFile], aRandom.Below(aRandom.OneIn(5) ? 40'000 : 500));
        }
    }

    void Destroy() override {
        Actor::Destroy();
        m_recording.Destroy();
    }

 private:
    using File = std::pair<CmUint32, CCmString>;

    void Open() {
        const CCmString strName = std::to_string(m_races.m_mapHanded.size());
        CmUint32 dwHandle = 0;
        if (m_recording->OpenWritingFile(strName, dwHandle) != 0) return;
        if (m_mode == Async) ++m_nOpens;
        m_races.m_mapHanded[strName] = 0;
        m_vecFiles.push_back({dwHandle, strName});
    }

    void Write(const File& aFile, unsigned nLength) {
        std::size_t& nHanded = m_races.m_mapHanded[aFile.second];
        if (nHanded + nLength > c_nFixture) return;
        if (m_recording.Write(aFile.first, m_races.m_strFixture.substr(nHanded, nLength)) == 0)
            nHanded += nLength;
    }

    const Mode m_mode;
    Recording m_recording;
    std::vector<File> m_vecFiles;
};

/// Plays the record file, or the container; then its end stops the worker.
class PlayerActor final : public Actor {
 public:
    PlayerActor(Races& aRaces, unsigned nSeed, Mode aMode, Player::Use aUse)
        : Actor(aRaces, nSeed), m_mode(aMode), m_player(aMode, this, aUse), m_use(aUse) {}

    void Act(SeededRandom& aRandom) override {
        if (m_bEnded) return;
        if (!m_bOpened) return Open();
        if (aRandom.OneIn(40)) {
            m_player->CloseAllRecordFiles();
        } else {
            const CmUint32 dwOffset = aRandom.Below(c_nFixture), dwLength = 1 + aRandom.Below(3000);
            if (dwOffset + dwLength > c_nFixture) return;
            ++m_nReads;  // counted before, because a synchronous callback runs inside the call
            if (m_player.Read({8, 7008, dwOffset, 2}, dwOffset, dwLength) != 0) --m_nReads;
        }
    }

    void Destroy() override {
        Actor::Destroy();
        m_player.Destroy();
    }

 private:
    void Open() {
        const CmInt32 lResult = m_use == Player::ForDownload
                                    ? m_player.Open("container")
                                    : m_player.OpenFile("fixture", c_aStream);
        m_bOpened =
            lResult == 0 || m_use == Player::ForDownload;  // a container is opened only once
        if (lResult == 0 && m_mode == Async) ++m_nOpens;
    }

    const Mode m_mode;
    Player m_player;
    const Player::Use m_use;
    bool m_bOpened = false;
};

std::shared_ptr<Actor> Races::NewActor(SeededRandom& aRandom) {
    const unsigned nSeed = aRandom.Below(1U << 30);
    const Mode aMode = aRandom.OneIn(5) ? Sync : Async;
    if (aRandom.OneIn(3))
        return std::make_shared<PlayerActor>(*this, nSeed, aMode, Player::ForFiles);
    if (aRandom.OneIn(5))
        return std::make_shared<PlayerActor>(*this, nSeed, aMode, Player::ForDownload);
    return std::make_shared<RecorderActor>(*this, nSeed, aMode);
}

void Races::Step(SeededRandom& aRandom) {
    std::shared_ptr<Actor>& pActor = m_aActors[aRandom.Below(m_aActors.size())];
    if (!pActor || aRandom.OneIn(60)) {
        if (pActor) m_vecEnded.push_back(pActor);
        if (pActor && !aRandom.OneIn(3)) pActor->Destroy();  // or it is left with its open files
        pActor = NewActor(aRandom);
    } else if (aRandom.OneIn(10)) {
        CCmCallerThread::RunPending();
    } else if (aRandom.OneIn(300)) {
        CacheFileShutdown();
    } else {
        ActOnce(aRandom);
    }
}

/// Shuts down with many requests in the worker's queue.
void Races::FillAndShutDown(SeededRandom& aRandom) {
    const auto pRecorder = std::make_shared<RecorderActor>(*this, aRandom.Below(1U << 30), Async);
    m_vecEnded.push_back(pRecorder);
    {
        ThreadGate aGate(Worker());
        for (unsigned i = 0; i < 6000 && HasTime(); ++i) pRecorder->Act(aRandom);
    }
    CacheFileShutdown();
}

}  // namespace

TEST_F(Races, EveryCallbackComesOnceAndEveryByteIsWrittenOrCounted) {
    std::atomic<bool> bEnd{false};
    std::thread aOnlooker([&] {  // calls that any thread may make at any time
        std::atomic<unsigned> nLines{0};
        while (!bEnd) {
            CCmT120Trace::instance()->SetSink([&](CmInt32, const char*) { ++nLines; });
            CCacheFileManager::GetLostBytes();
            CCacheFileManager::SetPendingLimit(
                CCacheFileManager::GetPendingBytes() % 2 ? 65'536 : c_qwNoLimit);
            CCmT120Trace::instance()->SetSink({});
            std::this_thread::yield();
        }
    });
    SeededRandom aSeeds;
    for (int nRound = 0; nRound < 30 && HasTime(); ++nRound) {
        SeededRandom aRandom(aSeeds.Below(1U << 30));
        for (int nStep = 0; nStep < 1500 && HasTime(); ++nStep) Step(aRandom);
        FillAndShutDown(aRandom);
        for (const auto& pActor : m_aActors)
            if (pActor) m_vecEnded.push_back(pActor);
        for (const auto& pActor : m_vecEnded) pActor->ExpectAnswered();
        for (const auto& pActor : m_vecEnded) pActor->Destroy();
        CacheFileShutdown();
        EXPECT_EQ(CCacheFileManager::GetPendingBytes(), 0U);
        m_vecEnded.clear();
        m_aActors = {};
    }
    bEnd = true;
    aOnlooker.join();

    std::uint64_t qwHanded = 0, qwWritten = 0;
    for (const auto& [strName, nHanded] : m_mapHanded) {
        const CCmString strFile = ReadBytes(Recording::PathOf(strName));
        ASSERT_EQ(Difference(strFile, m_strFixture.substr(0, strFile.size())), "") << strName;
        qwHanded += nHanded;
        qwWritten += strFile.size();
    }
    const std::uint64_t qwLost = m_lost.Take();
    EXPECT_EQ(qwHanded, qwWritten + qwLost);
    std::cout << m_mapHanded.size() << " files, " << qwWritten << " bytes written, " << qwLost
              << " lost, " << m_qwAnswers << " answers\n";
}
