#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "download/ContainerFormat.h"
#include "tools/cachefile/Budgets.h"
#include "tools/cachefile/Limits.h"
#include "tools/cachefile/Progress.h"
#include "tools/cachefile/Recorder.h"

// The commands with their options, each in a file of its name. Each returns the exit code of the
// tool (Exit.h). It throws CFailure if it fails, and Interrupted if the process is interrupted.

struct tagRecordOptions {
    tagPlan aPlan{0, "kvr2", false};
    tagLimits aLimits;
    CmUint32 dwFlush = 1000;  ///< milliseconds; 0: off
    CmUint32 dwSync = 1000;   ///< milliseconds; 0: off
    std::vector<std::string> vecStreams;
    std::size_t nPiece = 32768;
    bool bForce = false;
    bool bJson = false;
    ProgressMode aProgress = ProgressMode::Auto;
};
/// Records streams from files, pipes or standard input until they end.
int Record(const tagRecordOptions& aOptions);

struct tagPlayOptions {
    std::string strPath;
    std::string strStream;
    std::uint64_t qwOffset = 0;
    std::optional<std::uint64_t> qwLength;
    bool bFollow = false;  ///< continue until the recorder of the directory ends
};
/// Writes the bytes of a stream to standard output.
int Play(const tagPlayOptions& aOptions);

struct tagInfoOptions {
    std::string strPath;
    bool bJson = false;
    bool bWatch = false;  ///< show a directory once a second until its recorder ends
};
/// Shows the properties and the streams of a recording.
int Info(const tagInfoOptions& aOptions);

struct tagListOptions {
    std::string strPath;
    bool bNames = false;  ///< only the names
    bool bJson = false;
};
/// Lists the streams of a recording, or the recordings of a directory.
int List(const tagListOptions& aOptions);

struct tagMapOptions {
    std::string strPath;
    std::string strOutput;
    bool bForce = false;
    bool bJson = false;
};
/// Draws the layout of a container, on the terminal, as SVG or as a page.
int Map(const tagMapOptions& aOptions);

struct tagExtractOptions {
    std::string strPath;
    std::string strDirectory;
    std::vector<std::string> vecStreams;
    bool bForce = false;
    ProgressMode aProgress = ProgressMode::Auto;
    bool bAllowOverlap = false;  ///< even if the files need more bytes than the container has
    std::uint64_t qwMaxFiles = c_qwMaxFiles;
    bool bJson = false;
};
/// Writes the streams of a container to files, even if it is damaged.
int Extract(const tagExtractOptions& aOptions);

struct tagPackOptions {
    std::vector<std::string> vecDirectories;
    std::string strOutput;
    std::vector<std::string> vecStreams;  ///< empty: all
    std::vector<std::string> vecRenames;  ///< [DIR/]FROM=TO
    bool bRenumber = false;
    bool bSkipUnpackable = false;
    CmUint32 dwIndexType = Index_Packed;
    std::optional<CmUint32> dwFileVersion;
    std::optional<CmUint32> dwCBTimeStamp;
    bool bVerify = false;
    bool bForce = false;
    bool bJson = false;
    ProgressMode aProgress = ProgressMode::Auto;
};
/// Makes a container from the record files of directories.
int Pack(const tagPackOptions& aOptions);

struct tagDoctorOptions {
    std::string strPath;
    bool bJson = false;
    bool bAll = false;   ///< show up to c_qwMaxFindings findings
    bool bDeep = false;  ///< read the files of a directory and compare their checksums
};
/// Reports what is wrong with a container or a recording directory.
int Doctor(const tagDoctorOptions& aOptions);

struct tagSumsOptions {
    std::string strPath;
    std::string strKnown;  ///< where the known checksums are; empty: beside the recording
    bool bCheck = false;
    bool bAllowOverlap = false;  ///< even if the streams have more bytes than the container
    bool bJson = false;
    ProgressMode aProgress = ProgressMode::Auto;
};
/// Writes or checks the checksums of the streams.
int Sums(const tagSumsOptions& aOptions);

struct tagRecoverOptions {
    std::string strPath;
    std::string strOutput;
    std::string strKnown;     ///< where the known checksums are; empty: beside the recording
    bool bContainer = false;  ///< write a container and not a directory
    std::uint64_t qwMaxFiles = c_qwMaxFiles;
    bool bJson = false;
    ProgressMode aProgress = ProgressMode::Auto;
};
/// Writes what can be recovered of a damaged container, or of a directory that was not closed.
int Recover(const tagRecoverOptions& aOptions);

struct tagBenchOptions {
    std::uint64_t qwMebibytes = 64;
    std::size_t nPiece = 4096;
    int nRounds = 3;
    std::string strDirectory;
    bool bJson = false;
};
/// Compares appending and reading with the library and with plain stdio.
int Bench(const tagBenchOptions& aOptions);
