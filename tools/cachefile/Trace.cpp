#include "tools/cachefile/Trace.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

#include "platform/CmTrace.h"
#include "tools/cachefile/Output.h"

namespace {

constexpr char c_szObject[] = " this=";
constexpr char c_szErrno[] = "rror=";  // "error=" and "Error="
constexpr char c_szNewFile[] = "CLocalFile::CLocalFile,";

struct tagHeard {
    std::mutex aMutex;
    std::string strLastFile;
    std::map<std::string, int> mapErrno;
};

/// Never destroyed, because the library may trace until the process ends.
tagHeard& Heard() {
    static tagHeard& s_aHeard = *new tagHeard;
    return s_aHeard;
}

std::atomic<bool> s_bShow{false};

/// Every line about an object ends with its address.
void OnLine(CmInt32 /*lLevel*/, const char* lpText) {
    if (s_bShow) Warn(Printable(lpText));
    const char* const lpObject = std::strstr(lpText, c_szObject);
    const char* const lpErrno = std::strstr(lpText, c_szErrno);
    if (!lpObject) return;
    const std::string strObject = lpObject + std::strlen(c_szObject);
    const std::lock_guard<std::mutex> aGuard(Heard().aMutex);
    if (std::strncmp(lpText, c_szNewFile, std::strlen(c_szNewFile)) == 0) {
        Heard().strLastFile = strObject;
        Heard().mapErrno.erase(strObject);  // of an earlier object at this address
    } else if (lpErrno) {
        Heard().mapErrno.emplace(strObject, std::atoi(lpErrno + std::strlen(c_szErrno)));
    }
}

}  // namespace

void Trace::Listen(bool bShow) {
    Heard();
    if (bShow) s_bShow = true;
    CCmT120Trace::instance()->SetSink(OnLine);
}

std::string Trace::LastFileObject() {
    const std::lock_guard<std::mutex> aGuard(Heard().aMutex);
    return Heard().strLastFile;
}

int Trace::FirstErrno(const std::string& strObject) {
    const std::lock_guard<std::mutex> aGuard(Heard().aMutex);
    const auto it = Heard().mapErrno.find(strObject);
    return it == Heard().mapErrno.end() ? 0 : it->second;
}
