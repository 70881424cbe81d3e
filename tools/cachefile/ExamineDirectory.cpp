#include "tools/cachefile/ExamineDirectory.h"

#include <algorithm>

#include "tools/cachefile/Checksum.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

namespace {

/// One examination. Lives on the stack.
class CDirectoryExaminer {
 public:
    CDirectoryExaminer(const tagRecording& aRecording, const tagNotes& aNotes, std::uint64_t qwMax)
        : m_recording(aRecording),
          m_notes(aNotes),
          m_directory(System::NativePath(aRecording.strPath)),
          m_findings(qwMax) {}

    tagFindings Run(bool bDeep) {
        const RecordingState aState = StateOfDirectory(m_directory, m_notes);
        if (m_notes.aState == tagNotes::Bad)
            Add(Finding::NotesUnusable, 0, "recording.json cannot be used: " + m_notes.strFault);
        if (aState == RecordingState::NotClosed)
            Add(Finding::NotClosed, 0,
                "the recorder was killed or could not write its notes: the ends of streams may be "
                "missing");
        for (const tagStream& aStream : m_recording.vecStreams) ExamineFile(aStream);
        for (const std::string& strName : m_recording.vecNotFiles)
            Add(Finding::NotAFile, 0, strName + " is named like a record file, but is not a file");
        if (aState != RecordingState::Recording)
            for (const auto& [strStream, aNoted] : m_notes.mapStreams)
                Compare(strStream, aNoted, bDeep);
        return m_findings.Take();
    }

 private:
    void Add(Finding aFinding, std::uint64_t qwOffset, const std::string& strText) {
        m_findings.Add(aFinding, qwOffset, [&] { return Printable(strText); });
    }

    void ExamineFile(const tagStream& aStream) {
        const std::string strFile = StreamFileName(aStream.aDescriber);
        std::error_code aError;
        if (std::filesystem::is_symlink(m_directory / strFile, aError))
            Add(Finding::Link, 0, strFile + " is a link");
        const std::string strFault = PackFault(aStream.aDescriber, aStream.qwExtent);
        if (!strFault.empty())
            Add(Finding::NotPackable, std::min(aStream.qwExtent, c_qwPlayable),
                aStream.Name() + " cannot be packed: " + strFault);
    }

    void Compare(const std::string& strStream, const tagNotedStream& aNoted, bool bDeep) {
        const tagStream* const pStream = m_recording.Find(*ParseStreamName(strStream));
        if (!pStream) return Add(Finding::FileMissing, 0, strStream + " has no record file");
        const std::string strSize = NoteFault(aNoted, pStream->qwExtent, "");
        if (!strSize.empty())
            Add(Finding::SizeDiffers, std::min(*aNoted.qwBytes, pStream->qwExtent),
                strStream + ": " + strSize);
        if (!bDeep || !strSize.empty() || aNoted.strChecksum.empty()) return;
        const std::string strChecksum =
            ChecksumOfFile(m_directory / StreamFileName(pStream->aDescriber), [] {
                if (System::IsInterrupted()) throw Interrupted();
            });
        if (strChecksum.empty())
            Add(Finding::FileUnreadable, 0, strStream + ": its file cannot be read");
        else if (strChecksum != aNoted.strChecksum)
            Add(Finding::ChecksumDiffers, 0,
                strStream + " has the checksum " + strChecksum + " instead of " +
                    aNoted.strChecksum);
    }

    const tagRecording& m_recording;
    const tagNotes& m_notes;
    const std::filesystem::path m_directory;
    CFindingList m_findings;
};

}  // namespace

tagFindings ExamineDirectory(const tagRecording& aRecording, const tagNotes& aNotes, bool bDeep,
                             std::uint64_t qwMax) {
    return CDirectoryExaminer(aRecording, aNotes, qwMax).Run(bDeep);
}
