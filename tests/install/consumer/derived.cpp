#include <cachefile.h>

#include <cstdio>

// Classes of a host that derive from exported classes. Each object is destroyed with its last
// reference.

static int s_nEnded = 0;

class Recorder final : public CWriteFileHandler {
 public:
    Recorder() : CWriteFileHandler(12, 0) {}
    ~Recorder() override { ++s_nEnded; }
};

class Player final : public CPlayFileHandler {
 public:
    Player() : CPlayFileHandler(12, 0, 0) {}
    ~Player() override { ++s_nEnded; }
};

class Receiver final : public IFileOpStatus {
 public:
    ~Receiver() override { ++s_nEnded; }
    void OnFileOpStatus(CCacheFileManager::LinkType, CCacheFileManager::OpType, CmInt32) override {}
    void OnDataReady(unsigned char* data, CmUint32, const tagDataInfo&) override { delete[] data; }
    CmInt32 GetFileStatus(CCacheFileManager::LinkType) override { return CACHE_OK; }
};

int main() {
    const CRefPtr<Receiver> receiver(new Receiver);
    {
        const CRefPtr<Receiver> other(new Receiver);
        Recorder* const recorder = new Recorder;  // Destroy releases this reference
        recorder->AddReference();
        recorder->Initialize(receiver.Get());
        recorder->Destroy();
        Player* const player = new Player;
        player->AddReference();
        player->Initialize(receiver.Get());
        player->Destroy();
    }
    if (s_nEnded != 3) std::fprintf(stderr, "%d of 3 objects have ended\n", s_nEnded);
    return s_nEnded == 3 ? 0 : 1;
}
