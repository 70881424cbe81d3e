#pragma once

#include <atomic>

/// A descriptor that the syncs use: of a directory with new names, or of a file that has been
/// closed and waits for its last sync. The object owns it and closes it.
///
/// A value that can be moved, without a lock: its owner decides which thread uses it. The
/// descriptors of the process are counted, because a recorder that opens and closes many files in
/// one interval could use up all that the process may have. Any thread may ask for the count.
class CSyncDescriptor {
 public:
    CSyncDescriptor() = default;
    /// Takes ownership of nFile; -1 means none.
    explicit CSyncDescriptor(int nFile);
    CSyncDescriptor(CSyncDescriptor&& aOther) noexcept;
    CSyncDescriptor& operator=(CSyncDescriptor&& aOther) noexcept;
    ~CSyncDescriptor() { Close(); }

    /// The descriptor; -1 if there is none.
    int Get() const { return m_nFile; }

    /// Returns 0, or -1 with errno if the system reports a failure. The descriptor is closed in
    /// both cases.
    int Close();

    /// Whether so many are open that a sync should not wait for its time.
    static bool AreMany() { return s_nOpen.load(std::memory_order_relaxed) > c_nMaxWaiting; }
    /// Whether so many are open that a file should be synced in its close rather than later.
    static bool AreTooMany() { return s_nOpen.load(std::memory_order_relaxed) > c_nMaxOpen; }

 private:
    // Together with the files of a host they have to stay below the limit that systems set at
    // first: 1,024 descriptors.
    static constexpr int c_nMaxWaiting = 64;
    static constexpr int c_nMaxOpen = 256;

    static std::atomic<int> s_nOpen;

    int m_nFile = -1;
};
