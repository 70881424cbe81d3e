#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "download/ContainerFormat.h"
#include "tools/cachefile/Progress.h"
#include "tools/cachefile/Recorder.h"

// The commands, one file each, with their options. Each returns how the tool ends (Exit.h), and
// throws CFailure when it cannot be done.

struct tagRecordOptions {
    tagPlan aPlan{0, "kvr2", false};
    std::vector<std::string> vecStreams;
    std::size_t nPiece = 32768;
    bool bForce = false;
    bool bJson = false;
    ProgressMode aProgress = ProgressMode::Auto;
};
/// Records streams from files, pipes or standard input, until they end.
int Record(const tagRecordOptions& aOptions);

struct tagPlayOptions {
    std::string strPath;
    std::string strStream;
    std::uint64_t qwOffset = 0;
    std::optional<std::uint64_t> qwLength;
};
/// Writes the bytes of a stream to standard output.
int Play(const tagPlayOptions& aOptions);

struct tagInfoOptions {
    std::string strPath;
    bool bJson = false;
};
/// Shows what a recording is and what it holds.
int Info(const tagInfoOptions& aOptions);

struct tagListOptions {
    std::string strPath;
    bool bJson = false;
};
/// Lists the streams of a recording.
int List(const tagListOptions& aOptions);

struct tagMapOptions {
    std::string strPath;
    std::string strOutput;
    bool bForce = false;
    bool bJson = false;
};
/// Draws what lies where in a container, on the terminal or as SVG.
int Map(const tagMapOptions& aOptions);

struct tagExtractOptions {
    std::string strPath;
    std::string strDirectory;
    std::vector<std::string> vecStreams;
    bool bForce = false;
    ProgressMode aProgress = ProgressMode::Auto;
    bool bAllowOverlap = false;  ///< also if the files need more bytes than the container has
    bool bJson = false;
};
/// Writes the streams of a container into files, also of a damaged one.
int Extract(const tagExtractOptions& aOptions);

struct tagPackOptions {
    std::vector<std::string> vecDirectories;
    std::string strOutput;
    std::vector<std::string> vecStreams;  ///< empty: all
    bool bSkipUnpackable = false;
    CmUint32 dwIndexType = Index_Packed;
    std::optional<CmUint32> dwFileVersion;
    std::optional<CmUint32> dwCBTimeStamp;
    bool bVerify = false;
    bool bForce = false;
    bool bJson = false;
    ProgressMode aProgress = ProgressMode::Auto;
};
/// Makes a container of the record files of directories.
int Pack(const tagPackOptions& aOptions);

struct tagDoctorOptions {
    std::string strPath;
    bool bJson = false;
    bool bAll = false;  ///< show every finding, however many have the same code
};
/// Reports what is wrong with a container.
int Doctor(const tagDoctorOptions& aOptions);

struct tagBenchOptions {
    std::uint64_t qwMebibytes = 64;
    std::size_t nPiece = 4096;
    int nRounds = 3;
    std::string strDirectory;
    bool bJson = false;
};
/// Appends and reads with the library and with plain stdio, side by side.
int Bench(const tagBenchOptions& aOptions);
