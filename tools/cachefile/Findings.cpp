#include "tools/cachefile/Findings.h"

#include <iterator>
#include <utility>

#include "tools/cachefile/Output.h"

namespace {

struct tagKind {
    Severity aSeverity;
    const char* lpCode;
};

constexpr tagKind c_aKinds[] = {
#define CACHEFILE_FINDING(name, severity, code) {Severity::severity, code},
    CACHEFILE_FINDINGS(CACHEFILE_FINDING)
#undef CACHEFILE_FINDING
};
static_assert(std::size(c_aKinds) == c_nFindingKinds, "ChecksumDiffers is the last kind");

}  // namespace

bool CFindingList::Count(Finding aFinding, std::uint64_t qwOffset) {
    tagTotal& aTotal = m_aTotals[static_cast<std::size_t>(aFinding)];
    if (aTotal.qwCount++ < m_qwMax && m_qwKept < c_qwMaxFindings) {
        ++m_qwKept;
        return true;
    }
    if (aTotal.qwOnlyCounted++ == 0) aTotal.qwFirstCountedOffset = qwOffset;
    return false;
}

void CFindingList::Keep(Finding aFinding, std::uint64_t qwOffset, std::string strMessage) {
    const tagKind& aKind = c_aKinds[static_cast<std::size_t>(aFinding)];
    m_findings.vecFindings.push_back(
        {aKind.aSeverity, aKind.lpCode, qwOffset, std::move(strMessage)});
}

tagFindings CFindingList::Take() {
    for (std::size_t i = 0; i < c_nFindingKinds; ++i) {
        if (m_aTotals[i].qwCount == 0) continue;
        m_aTotals[i].aSeverity = c_aKinds[i].aSeverity;
        m_aTotals[i].lpCode = c_aKinds[i].lpCode;
        m_findings.vecTotals.push_back(m_aTotals[i]);
        (c_aKinds[i].aSeverity == Severity::Error ? m_findings.qwErrors : m_findings.qwWarnings) +=
            m_aTotals[i].qwCount;
    }
    return std::move(m_findings);
}

const char* SeverityName(Severity aSeverity) {
    return aSeverity == Severity::Error ? "error" : "warning";
}

std::string CountText(const tagFindings& aFindings) {
    const auto aText = [](std::uint64_t qwCount, const char* lpWhat) {
        return Grouped(qwCount) + " " + lpWhat + (qwCount == 1 ? "" : "s");
    };
    std::string strText;
    if (aFindings.qwErrors > 0) strText = aText(aFindings.qwErrors, "error");
    if (aFindings.qwWarnings > 0)
        strText += (strText.empty() ? "" : ", ") + aText(aFindings.qwWarnings, "warning");
    return strText.empty() ? "nothing found" : strText;
}
