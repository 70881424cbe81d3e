#pragma once

#include <cstdint>

#include "tools/demo/Stopwatch.h"

/// A bar on standard error that shows how much of the work is done. It wipes itself away when it
/// ends, so that what is printed next stands on a clean line.
class CProgress {
 public:
    /// bShown false: it shows nothing at all.
    CProgress(std::uint64_t qwTotal, bool bShown) : m_qwTotal(qwTotal), m_bShown(bShown) {}
    ~CProgress();
    CProgress(const CProgress&) = delete;
    CProgress& operator=(const CProgress&) = delete;

    /// Draws the bar, a few times a second at most however often it is called.
    void Show(std::uint64_t qwDone);

 private:
    const std::uint64_t m_qwTotal;
    const bool m_bShown;
    bool m_bDrawn = false;
    CStopwatch m_sinceDrawn;
};
