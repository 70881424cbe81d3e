#include "tools/demo/Progress.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace {

constexpr double c_dSecondsBetween = 0.05;
constexpr int c_nWidth = 40;

}  // namespace

CProgress::~CProgress() {
    if (m_bDrawn) std::fprintf(stderr, "\r%*s\r", 79, "");
}

void CProgress::Show(std::uint64_t qwDone) {
    const bool bDue =
        !m_bDrawn || qwDone >= m_qwTotal || m_sinceDrawn.GetSeconds() >= c_dSecondsBetween;
    if (!m_bShown || !bDue) return;
    const double dShare =
        m_qwTotal == 0
            ? 1
            : std::min(1.0, static_cast<double>(qwDone) / static_cast<double>(m_qwTotal));
    std::string strBar(static_cast<std::size_t>(dShare * c_nWidth), '#');
    strBar.resize(c_nWidth, '.');
    std::fprintf(stderr, "\rrecording [%s] %3d%% of %.1f MB", strBar.c_str(),
                 static_cast<int>(dShare * 100), static_cast<double>(m_qwTotal) / 1e6);
    std::fflush(stderr);
    m_bDrawn = true;
    m_sinceDrawn.Restart();
}
