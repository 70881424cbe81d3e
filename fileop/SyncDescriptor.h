#pragma once

/// A descriptor that the syncs use: of a directory with new names, or of a file that has been
/// closed and waits for its last sync. The object owns it and closes it.
///
/// A value that can be moved, without a lock: its owner decides which thread uses it.
class CSyncDescriptor {
 public:
    CSyncDescriptor() = default;
    /// Takes ownership of nFile; -1 means none.
    explicit CSyncDescriptor(int nFile) : m_nFile(nFile) {}
    CSyncDescriptor(CSyncDescriptor&& aOther) noexcept;
    CSyncDescriptor& operator=(CSyncDescriptor&& aOther) noexcept;
    ~CSyncDescriptor() { Close(); }

    /// The descriptor; -1 if there is none.
    int Get() const { return m_nFile; }

    /// Returns 0, or -1 with errno if the system reports a failure. The descriptor is closed in
    /// both cases.
    int Close();

 private:
    int m_nFile = -1;
};
