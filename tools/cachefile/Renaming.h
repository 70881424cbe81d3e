#pragma once

#include <map>
#include <string>
#include <vector>

#include "core/DataInfo.h"

/// The names that streams get in a container, when several recordings are packed into one. Owned
/// by one command and used on its thread. Functions throw CFailure.
class CRenaming {
 public:
    /// Each rule is [DIR/]FROM=TO; bRenumber gives names that are taken the next free id.
    CRenaming(const std::vector<std::string>& vecRules, bool bRenumber);

    /// Returns the name that the rules give to a stream of a directory. Does not take the name.
    tagFileDescriber Apply(const tagFileDescriber& aDescriber, const std::string& strDirectory);

    /// Takes a name for a stream of a directory, so that no other stream gets it. If the name is
    /// taken already, takes the one with the next free id, and returns false if there is none.
    /// Without bRenumber, throws instead.
    bool Take(tagFileDescriber& aDescriber, const std::string& strDirectory);

    /// Throws if a rule has matched no stream.
    void RequireUsed() const;

 private:
    struct tagRule {
        std::string strDirectory;  // empty: any
        std::string strFrom;
        tagFileDescriber aTo;
        bool bUsed = false;
    };

    std::vector<tagRule> m_vecRules;
    const bool m_bRenumber;
    std::map<std::string, std::string> m_mapTaken;  // the directory of each name
};
