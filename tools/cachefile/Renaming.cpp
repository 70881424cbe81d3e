#include "tools/cachefile/Renaming.h"

#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/Streams.h"

namespace {

constexpr CmUint32 c_dwNextId = 1000;  // an id is a number times this plus the type

std::string WithoutSlash(std::string strDirectory) {
    while (strDirectory.size() > 1 && strDirectory.back() == '/') strDirectory.pop_back();
    return strDirectory;
}

}  // namespace

CRenaming::CRenaming(const std::vector<std::string>& vecRules, bool bRenumber)
    : m_bRenumber(bRenumber) {
    for (const std::string& strRule : vecRules) {
        const std::size_t nEqual = strRule.rfind('=');
        if (nEqual == std::string::npos)
            throw CFailure("expected FROM=TO, not '" + Printable(strRule) + "'", Exit_Usage);
        const std::string strFrom = strRule.substr(0, nEqual);
        const std::size_t nSlash = strFrom.rfind('/');
        const bool bDirectory = nSlash != std::string::npos;
        m_vecRules.push_back(
            {bDirectory ? WithoutSlash(strFrom.substr(0, nSlash + 1)) : "",
             StreamName(RequireStream(bDirectory ? strFrom.substr(nSlash + 1) : strFrom)),
             RequireStream(strRule.substr(nEqual + 1))});
    }
}

tagFileDescriber CRenaming::Apply(const tagFileDescriber& aDescriber,
                                  const std::string& strDirectory) {
    for (tagRule& aRule : m_vecRules) {
        if (aRule.strFrom != StreamName(aDescriber)) continue;
        if (!aRule.strDirectory.empty() && aRule.strDirectory != WithoutSlash(strDirectory))
            continue;
        aRule.bUsed = true;
        return aRule.aTo;
    }
    return aDescriber;
}

bool CRenaming::Take(tagFileDescriber& aDescriber, const std::string& strDirectory) {
    tagFileDescriber aFree = aDescriber;
    for (;;) {
        const auto [it, bNew] = m_mapTaken.try_emplace(StreamName(aFree), strDirectory);
        if (bNew) break;
        if (!m_bRenumber)
            throw CFailure(StreamName(aFree) + " is in " + Printable(it->second) + " and in " +
                           Printable(strDirectory) + " (see `--rename` and `--renumber`)");
        aFree.dwFileID += c_dwNextId;
        if (aFree.dwFileID < c_dwNextId || !PackFault(aFree, 0).empty()) return false;
    }
    aDescriber = aFree;
    return true;
}

void CRenaming::RequireUsed() const {
    for (const tagRule& aRule : m_vecRules)
        if (!aRule.bUsed)
            throw CFailure(
                "there is no record file of the stream " + aRule.strFrom +
                (aRule.strDirectory.empty() ? "" : " in " + Printable(aRule.strDirectory)));
}
