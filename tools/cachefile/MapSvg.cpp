#include "tools/cachefile/MapSvg.h"

#include <algorithm>
#include <filesystem>

#include "tools/cachefile/Examine.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/System.h"
#include "tools/cachefile/Xml.h"

namespace {

constexpr double c_dLeft = 36, c_dWidth = 1000;
constexpr double c_dBarTop = 72, c_dBarHeight = 56;
constexpr double c_dVisible = 2;      // the least width of a part that is drawn alone
constexpr double c_dLetter = 7;       // the width of a letter in a label, about
constexpr std::size_t c_nNamed = 12;  // the legend names at most so many streams

std::string Number(double dNumber) { return Decimal(dNumber, 2); }

std::string Text(double dX, double dY, const std::string& strClass, const std::string& strText) {
    return "<text x=\"" + Number(dX) + "\" y=\"" + Number(dY) + "\" class=\"" + strClass + "\">" +
           EscapeXml(strText) + "</text>\n";
}

std::string Rectangle(double dX, double dY, double dWidth, double dHeight,
                      const std::string& strClass, const std::string& strTitle) {
    return "<rect x=\"" + Number(dX) + "\" y=\"" + Number(dY) + "\" width=\"" + Number(dWidth) +
           "\" height=\"" + Number(dHeight) + "\" class=\"" + strClass + "\"><title>" +
           EscapeXml(strTitle) + "</title></rect>\n";
}

/// The bar of the file. The object is used once, on the stack.
class CBar {
 public:
    CBar(const tagRecording& aRecording, const std::vector<tagRegion>& vecRegions)
        : m_recording(aRecording),
          m_vecRegions(vecRegions),
          m_dScale(c_dWidth / static_cast<double>(vecRegions.back().qwEnd)) {}

    std::string Draw() {
        for (std::size_t i = 0; i < m_vecRegions.size(); ++i)
            if (!IsDamage(m_vecRegions[i])) DrawPart(i);
        EndGroup();
        for (const tagRegion& aRegion : m_vecRegions)
            if (IsDamage(aRegion)) DrawDamage(aRegion);
        return m_strSvg;
    }

    bool HasGroups() const { return m_bGroups; }

 private:
    static bool IsDamage(const tagRegion& aRegion) {
        return aRegion.aKind == tagRegion::Overlap || aRegion.aKind == tagRegion::Missing;
    }
    double At(std::uint64_t qwOffset) const {
        return c_dLeft + static_cast<double>(qwOffset) * m_dScale;
    }
    double WidthOf(std::uint64_t qwBegin, std::uint64_t qwEnd) const {
        return static_cast<double>(qwEnd - qwBegin) * m_dScale;
    }
    std::string TitleOf(const tagRegion& aRegion) const {
        return DescribeRegion(aRegion, m_recording) + ": " +
               Grouped(aRegion.qwEnd - aRegion.qwBegin) + " bytes at " + Grouped(aRegion.qwBegin);
    }

    void DrawPart(std::size_t nRegion) {
        const tagRegion& aRegion = m_vecRegions[nRegion];
        const bool bSmall = WidthOf(aRegion.qwBegin, aRegion.qwEnd) < c_dVisible;
        if (m_nGroup > 0 && (!bSmall || WidthOf(m_qwGroup, aRegion.qwBegin) >= c_dVisible))
            EndGroup();
        if (!bSmall) return DrawAlone(aRegion);
        if (m_nGroup++ == 0) m_qwGroup = aRegion.qwBegin;
        m_nLast = nRegion;
    }

    void DrawAlone(const tagRegion& aRegion) {
        const double dWidth = WidthOf(aRegion.qwBegin, aRegion.qwEnd);
        const double dX = std::min(At(aRegion.qwBegin), c_dLeft + c_dWidth - c_dVisible);
        m_strSvg += Rectangle(dX, c_dBarTop, std::max(dWidth, c_dVisible), c_dBarHeight,
                              "part " + MapClass(aRegion), TitleOf(aRegion));
        DrawLabel(aRegion, dX, dWidth);
    }

    /// Only if it fits.
    void DrawLabel(const tagRegion& aRegion, double dX, double dWidth) {
        const std::string strLabel = aRegion.aKind == tagRegion::Stream
                                         ? m_recording.vecStreams[aRegion.nStream - 1].Name()
                                         : RegionName(aRegion.aKind);
        if (static_cast<double>(strLabel.size()) * c_dLetter + 8 < dWidth)
            m_strSvg += Text(dX + dWidth / 2, c_dBarTop + c_dBarHeight / 2 + 4,
                             "label on-" + MapClass(aRegion), strLabel);
    }

    /// Draws the small parts before a region: one part as itself, several as a group.
    void EndGroup() {
        if (m_nGroup == 1) DrawAlone(m_vecRegions[m_nLast]);
        if (m_nGroup > 1) {
            const std::uint64_t qwEnd = m_vecRegions[m_nLast].qwEnd;
            m_strSvg +=
                Rectangle(std::min(At(m_qwGroup), c_dLeft + c_dWidth - c_dVisible), c_dBarTop,
                          std::max(WidthOf(m_qwGroup, qwEnd), c_dVisible), c_dBarHeight, "many",
                          Grouped(m_nGroup) + " small parts: " + Grouped(qwEnd - m_qwGroup) +
                              " bytes at " + Grouped(m_qwGroup));
            m_bGroups = true;
        }
        m_nGroup = 0;
    }

    /// An overlap is a strip above the bar. Of several in the same place the first one is drawn.
    void DrawDamage(const tagRegion& aRegion) {
        const double dWidth = std::max(WidthOf(aRegion.qwBegin, aRegion.qwEnd), 2 * c_dVisible);
        const double dX = std::min(At(aRegion.qwBegin), c_dLeft + c_dWidth - dWidth);
        if (dX + dWidth < m_dDamaged + 1) return;
        m_dDamaged = dX + dWidth;
        const bool bOverlap = aRegion.aKind == tagRegion::Overlap;
        m_strSvg += Rectangle(dX, bOverlap ? c_dBarTop - 12 : c_dBarTop, dWidth,
                              bOverlap ? 10 : c_dBarHeight, MapClass(aRegion), TitleOf(aRegion));
        if (!bOverlap) DrawLabel(aRegion, dX, dWidth);
    }

    const tagRecording& m_recording;
    const std::vector<tagRegion>& m_vecRegions;
    const double m_dScale;
    std::string m_strSvg;
    std::size_t m_nGroup = 0;  // small parts that are not drawn yet
    std::uint64_t m_qwGroup = 0;
    std::size_t m_nLast = 0;
    bool m_bGroups = false;
    double m_dDamaged = -1;
};

/// Marks at multiples of a power of two, so that their labels are whole numbers of a unit.
std::string DrawScale(std::uint64_t qwEnd) {
    static const char* const s_aUnits[] = {"bytes", "KiB", "MiB", "GiB"};
    std::uint64_t qwStep = 1;
    while (qwEnd / qwStep > 8) qwStep *= 2;
    std::size_t nUnit = 0;
    std::uint64_t qwUnit = 1;
    for (; qwStep / qwUnit >= 1024; qwUnit *= 1024) ++nUnit;
    std::string strSvg;
    for (std::uint64_t qwAt = 0; qwAt <= qwEnd; qwAt += qwStep) {
        const double dX =
            c_dLeft + c_dWidth * static_cast<double>(qwAt) / static_cast<double>(qwEnd);
        const double dY = c_dBarTop + c_dBarHeight;
        strSvg +=
            "<path class=\"tick\" d=\"M" + Number(dX) + " " + Number(dY + 2) + "v6\"/>\n" +
            Text(dX, dY + 22, "scale",
                 Grouped(qwAt / qwUnit) + (qwAt == 0 ? "" : std::string(" ") + s_aUnits[nUnit]));
    }
    return strSvg;
}

struct tagLegendItem {
    std::string strClass;
    std::string strText;
};

/// The kinds of regions in the file, and the streams if there are few.
std::vector<tagLegendItem> LegendOf(const tagRecording& aRecording,
                                    const std::vector<tagRegion>& vecRegions, bool bGroups) {
    std::vector<tagLegendItem> vecItems;
    const auto addKind = [&](tagRegion::Kind aKind, const std::string& strText) {
        std::uint64_t qwBytes = 0;
        for (const tagRegion& aRegion : vecRegions)
            if (aRegion.aKind == aKind) qwBytes += aRegion.qwEnd - aRegion.qwBegin;
        if (qwBytes > 0)
            vecItems.push_back(
                {MapClass({aKind, 0, 0, 0}), strText + ", " + Grouped(qwBytes) + " bytes"});
    };
    addKind(tagRegion::Header, "header");
    addKind(tagRegion::Index, "index");
    if (aRecording.vecStreams.size() > c_nNamed)
        vecItems.push_back(
            {"streams", Grouped(aRecording.vecStreams.size()) + " streams, in turn"});
    else
        for (const tagRegion& aRegion : vecRegions)
            if (aRegion.aKind == tagRegion::Stream) {
                const tagStream& aStream = aRecording.vecStreams[aRegion.nStream - 1];
                vecItems.push_back({MapClass(aRegion),
                                    aStream.Name() + ", " + Grouped(aStream.qwPresent) + " bytes"});
            }
    if (bGroups) vecItems.push_back({"many", "several parts that are too small to be drawn"});
    addKind(tagRegion::Gap, "not used");
    addKind(tagRegion::Overlap, "used twice");
    addKind(tagRegion::Missing, "missing");
    return vecItems;
}

std::string Subtitle(const tagRecording& aRecording) {
    const tagFindings aFindings = Examine(aRecording, 0);
    const std::size_t nStreams = aRecording.vecStreams.size();
    return Grouped(aRecording.qwSize) + " bytes, " + Grouped(nStreams) +
           (nStreams == 1 ? " stream" : " streams") +
           (aFindings.qwErrors + aFindings.qwWarnings > 0 ? "; " + CountText(aFindings) : "");
}

}  // namespace

std::string DescribeRegion(const tagRegion& aRegion, const tagRecording& aRecording) {
    std::string strText = RegionName(aRegion.aKind);
    const bool bStream = aRegion.aKind == tagRegion::Stream || aRegion.aKind == tagRegion::Overlap;
    if (bStream && aRegion.nStream > 0)
        strText += " " + std::to_string(aRegion.nStream) + " (" +
                   aRecording.vecStreams[aRegion.nStream - 1].Name() + ")";
    return strText;
}

std::string MapClass(const tagRegion& aRegion) {
    if (aRegion.aKind != tagRegion::Stream) return RegionName(aRegion.aKind);
    return "stream" + std::to_string(aRegion.nTurn % 4);
}

std::string MapColours() {
    return ".stream0{fill:#56b4e9}.stream1{fill:#0072b2}.stream2{fill:#e69f00}"
           ".stream3{fill:#009e73}.header{fill:#cc79a7}.index{fill:#666}"
           ".streams{fill:url(#fill-streams)}.many{fill:url(#fill-many)}.gap{fill:url(#fill-gap)}"
           ".overlap{fill:url(#fill-overlap)}.missing{fill:url(#fill-missing)}"
           ".part{stroke:#fff;stroke-width:.7}.paper{fill:#fff}"
           "text{fill:#222;font:12px sans-serif}.title{font-size:17px;font-weight:bold}"
           ".label,.scale{text-anchor:middle}.tick,.line{stroke:#666}.ground{fill:#dcdcdc}"
           ".on-stream1,.on-index{fill:#fff}"
           ".on-gap,.on-missing{paint-order:stroke;stroke:#fff;stroke-width:5px}"
           "@media(prefers-color-scheme:dark){.paper{fill:#16181b}.part{stroke:#16181b}"
           "text{fill:#ddd}.index{fill:#999}.label{fill:#111}.on-stream1{fill:#fff}"
           ".ground{fill:#aaa}.line{stroke:#333}}";
}

std::string MapPatterns() {
    const auto pattern = [](const std::string& strName, const std::string& strContent) {
        return "<pattern id=\"fill-" + strName +
               "\" width=\"8\" height=\"8\" patternUnits=\"userSpaceOnUse\">" + strContent +
               "</pattern>";
    };
    const auto square = [](const char* lpX, const char* lpClass) {
        return std::string("<rect x=\"") + lpX + "\" width=\"8\" height=\"8\" " + lpClass + "/>";
    };
    const std::string strGround = square("0", "class=\"ground\"");
    return "<defs>" +
           pattern("streams", "<rect width=\"2\" height=\"8\" class=\"stream1\"/>" +
                                  square("2", "class=\"stream2\"") +
                                  square("4", "class=\"stream3\"") +
                                  square("6", "class=\"stream0\"")) +
           pattern("many", strGround + "<path class=\"line\" d=\"M1 0V8M5 0V8\"/>") +
           pattern("gap", strGround + "<path class=\"line\" d=\"M0 8L8 0\"/>") +
           pattern("overlap",
                   square("0", "fill=\"#f0e442\"") + "<path stroke=\"#222\" d=\"M0 2H8M0 6H8\"/>") +
           pattern("missing",
                   square("0", "fill=\"#d55e00\"") +
                       "<path stroke=\"#fff\" stroke-width=\"1.5\" d=\"M0 8L8 0M0 0L8 8\"/>") +
           "</defs>\n";
}

std::string DrawSvg(const tagRecording& aRecording, const std::vector<tagRegion>& vecRegions) {
    CBar aBar(aRecording, vecRegions);
    std::string strSvg =
        Rectangle(0, 0, 2 * c_dLeft + c_dWidth, 1e6, "paper", aRecording.strPath) +
        Text(c_dLeft, 28, "title", System::NativePath(aRecording.strPath).filename().u8string()) +
        Text(c_dLeft, 50, "", Subtitle(aRecording)) + aBar.Draw() +
        DrawScale(vecRegions.back().qwEnd);
    const std::vector<tagLegendItem> vecItems = LegendOf(aRecording, vecRegions, aBar.HasGroups());
    for (std::size_t i = 0; i < vecItems.size(); ++i) {
        const double dX = c_dLeft + static_cast<double>(i % 3) * (c_dWidth / 3);
        const double dY = c_dBarTop + c_dBarHeight + 44 + static_cast<double>(i / 3) * 24;
        strSvg += Rectangle(dX, dY, 16, 16, "part " + vecItems[i].strClass, vecItems[i].strText) +
                  Text(dX + 24, dY + 13, "", vecItems[i].strText);
    }
    const double dHeight =
        c_dBarTop + c_dBarHeight + 60 + static_cast<double>((vecItems.size() + 2) / 3) * 24;
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " +
           Number(2 * c_dLeft + c_dWidth) + " " + Number(dHeight) + "\">\n<style>" + MapColours() +
           "</style>\n" + MapPatterns() + strSvg + "</svg>\n";
}
