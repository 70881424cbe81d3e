#include "tools/cachefile/ShownNotes.h"

#include "tools/cachefile/Budgets.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/ShownRecording.h"
#include "tools/cachefile/System.h"

const char* StateName(RecordingState aState) {
    static const char* const s_aNames[] = {"unknown", "being recorded", "closed", "not closed",
                                           "recovered"};
    return s_aNames[static_cast<int>(aState)];
}

tagShownNotes::tagShownNotes(const tagRecording& aRecording) {
    if (aRecording.strPath == c_szStandardInput) return;
    const std::filesystem::path aPath = System::NativePath(aRecording.strPath);
    const bool bContainer = aRecording.IsContainer();
    aNotes = LoadNotes(bContainer ? NotesOfContainer(aPath) : NotesOfDirectory(aPath));
    if (!bContainer) aState = StateOfDirectory(aPath, aNotes);
    if (aNotes.aState == tagNotes::Bad)
        Warn("the notes of " + Printable(aRecording.strPath) +
             " cannot be used: " + aNotes.strFault);
}

Json tagShownNotes::Field(const char* lpName) const {
    return aNotes.aDocument.is_object() ? aNotes.aDocument.value(lpName, Json()) : Json();
}

std::string tagShownNotes::Text(const char* lpName) const {
    const Json aField = Field(lpName);
    if (!aField.is_string()) return "";
    const std::string strText = Printable(aField.get<std::string>());
    return strText.size() <= c_nMaxNoteText ? strText : strText.substr(0, c_nMaxNoteText) + "...";
}
