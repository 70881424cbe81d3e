#pragma once

#include <cstdint>
#include <cstring>

#include "platform/CmResult.h"
#include "platform/CmTraceLine.h"
#include "platform/CmTypes.h"

namespace cachefile_internal {

// The bytes of a little-endian field. Without loops, because compilers then generate a single load.

inline std::uint16_t Get16(const unsigned char* lpBytes) {
    return static_cast<std::uint16_t>(lpBytes[0] | lpBytes[1] << 8);
}
inline CmUint32 Get32(const unsigned char* lpBytes) {
    return CmUint32{lpBytes[0]} | CmUint32{lpBytes[1]} << 8 | CmUint32{lpBytes[2]} << 16 |
           CmUint32{lpBytes[3]} << 24;
}

}  // namespace cachefile_internal

/// A run of bytes with a read position. It neither owns nor copies the bytes, which must outlive
/// it.
class CCmMessageBlock {
 public:
    /// dwSize bytes at lpData, of which dwWritten hold data. The third argument has to be 1,
    /// because the bytes are never copied.
    CCmMessageBlock(CmUint32 dwSize, const unsigned char* lpData, int /*bDontCopy*/,
                    CmUint32 dwWritten)
        : m_lpData(lpData), m_dwEnd(dwWritten < dwSize ? dwWritten : dwSize) {}

    /// Copies the next dwCount bytes to lpDestination and moves the position past them. If
    /// fewer are left, returns CACHE_ERR_FAILED and copies and moves nothing.
    CmInt32 Read(void* lpDestination, CmUint32 dwCount) {
        if (dwCount > m_dwEnd - m_dwPosition) return CACHE_ERR_FAILED;
        std::memcpy(lpDestination, m_lpData + m_dwPosition, dwCount);
        m_dwPosition += dwCount;
        return CACHE_OK;
    }

 private:
    const unsigned char* const m_lpData;
    const CmUint32 m_dwEnd;
    CmUint32 m_dwPosition = 0;
};

/// Reads little-endian fields in order from a block. After the first failed read all later reads
/// fail too: they trace, and do not change their destination.
template <class BlockType>
class CCmByteStreamT {
 public:
    explicit CCmByteStreamT(BlockType& aBlock) : m_block(aBlock) {}

    CCmByteStreamT& operator>>(std::uint16_t& wValue) {
        return ReadField<2>(wValue, cachefile_internal::Get16);
    }
    CCmByteStreamT& operator>>(CmUint32& dwValue) {
        return ReadField<4>(dwValue, cachefile_internal::Get32);
    }

    CmInt32 m_ResultRead = CACHE_OK;   ///< code of the first failed read
    CmInt32 m_ResultWrite = CACHE_OK;  ///< code of the first failed write; nothing here writes

 private:
    template <unsigned Size, class T>
    CCmByteStreamT& ReadField(T& aValue, T (*pGet)(const unsigned char*)) {
        unsigned char aBytes[Size];
        if (m_ResultRead != CACHE_OK) return Refuse();
        m_ResultRead = m_block.Read(aBytes, Size);
        if (m_ResultRead != CACHE_OK) return *this;
        aValue = pGet(aBytes);
        return *this;
    }

    CCmByteStreamT& Refuse() {
        TraceError("CCmByteStreamT::Read, can't read. m_ResultRead=", m_ResultRead,
                   " this=", static_cast<const void*>(this));
        return *this;
    }

    BlockType& m_block;
};
