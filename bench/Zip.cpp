#include <zip.h>

#include "bench/Archives.h"
#include "bench/Bench.h"

void MakeZip(const std::string& strPath, std::size_t nEntries) {
    static const char aBytes[16] = {};
    int nError = 0;
    zip_t* const pZip = zip_open(strPath.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &nError);
    Require(pZip != nullptr, "zip_open");
    for (std::size_t i = 0; i < nEntries; ++i) {
        zip_source_t* const pSource = zip_source_buffer(pZip, aBytes, sizeof aBytes, 0);
        const zip_int64_t nIndex =
            zip_file_add(pZip, std::to_string(i * 1000 + 4).c_str(), pSource, 0);
        Require(nIndex >= 0, "zip_file_add");
        zip_set_file_compression(pZip, static_cast<zip_uint64_t>(nIndex), ZIP_CM_STORE, 0);
    }
    Require(zip_close(pZip) == 0, "zip_close");
}

std::size_t OpenZip(const std::string& strPath) {
    int nError = 0;
    zip_t* const pZip = zip_open(strPath.c_str(), ZIP_RDONLY, &nError);
    Require(pZip != nullptr, "zip_open");
    const zip_int64_t nEntries = zip_get_num_entries(pZip, 0);
    Require(zip_name_locate(pZip, "4", 0) >= 0, "zip_name_locate");
    zip_close(pZip);
    return static_cast<std::size_t>(nEntries);
}
