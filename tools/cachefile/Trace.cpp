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

struct tagTraced {
    std::mutex aMutex;
    std::string strLastFile;
    std::map<std::string, int> mapErrno;
};

/// Never destroyed, because the library may trace until the process ends.
tagTraced& Traced() {
    static tagTraced& s_aTraced = *new tagTraced;
    return s_aTraced;
}

std::atomic<bool> s_bShow{false};

/// Every line about an object ends with its address.
void OnLine(CmInt32 /*lLevel*/, const char* lpText) {
    if (s_bShow) WriteLine(Printable(lpText));
    const char* const lpObject = std::strstr(lpText, c_szObject);
    const char* const lpErrno = std::strstr(lpText, c_szErrno);
    if (!lpObject) return;
    const std::string strObject = lpObject + std::strlen(c_szObject);
    const std::lock_guard<std::mutex> aGuard(Traced().aMutex);
    if (std::strncmp(lpText, c_szNewFile, std::strlen(c_szNewFile)) == 0) {
        Traced().strLastFile = strObject;
        Traced().mapErrno.erase(strObject);  // of an earlier object at this address
    } else if (lpErrno) {
        Traced().mapErrno.emplace(strObject, std::atoi(lpErrno + std::strlen(c_szErrno)));
    }
}

}  // namespace

void Trace::Listen(bool bShow) {
    Traced();
    if (bShow) s_bShow = true;
    CCmT120Trace::instance()->SetSink(OnLine);
}

std::string Trace::LastFileObject() {
    const std::lock_guard<std::mutex> aGuard(Traced().aMutex);
    return Traced().strLastFile;
}

int Trace::FirstErrno(const std::string& strObject) {
    const std::lock_guard<std::mutex> aGuard(Traced().aMutex);
    const auto it = Traced().mapErrno.find(strObject);
    return it == Traced().mapErrno.end() ? 0 : it->second;
}
