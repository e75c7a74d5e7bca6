#include "render/report_page.h"

#include <fmt/format.h>

#include "render/html_text.h"
#include "render/overloaded.h"
#include "render/text.h"
#include "render/timeline/page.h"

namespace diskaccess {

namespace {

class Page {
public:
    explicit Page(const TimeZone& zone) : m_zone(zone) {}

    void Add(const ReportSection& section) {
        m_text += "<section><h2>" + HtmlText(section.title) + "</h2>\n";
        for (const Part& part : section.parts) {
            std::visit(Overloaded{[this](const Facts& facts) { AddFacts(facts); },
                                  [this](const Table& table) { AddTable(table); },
                                  [this](const Prose& prose) { AddProse(prose); }},
                       part);
        }
        if (!section.pictures.empty()) {
            m_text += section.wide ? "<div class=\"pictures wide\">\n" : "<div class=\"pictures\">\n";
            for (const ReportPicture& picture : section.pictures) {
                AddPicture(picture);
            }
            m_text += "</div>\n";
        }
        m_text += "</section>\n";
    }

    const std::string& Text() const { return m_text; }

private:
    static const char* ClassOf(const Value& value) {
        if (RightAligned(value)) {
            return " class=\"number\"";
        }
        return std::holds_alternative<Time>(value) || std::holds_alternative<Instant>(value)
                   ? " class=\"time\""
                   : "";
    }

    void AddFacts(const Facts& facts) {
        m_text += "<div class=\"scroll\"><table><tbody>\n";
        for (const Fact& fact : facts) {
            if (!fact.label.empty()) {
                m_text += fmt::format("<tr><th scope=\"row\">{}</th><td>{}</td></tr>\n", HtmlText(fact.label),
                                      HtmlText(CellText(fact.value, m_zone)));
            }
        }
        m_text += "</tbody></table></div>\n";
    }

    void AddTable(const Table& table) {
        m_text += "<div class=\"scroll\"><table><thead><tr>";
        for (size_t i = 0; i < table.columns.size(); ++i) {
            const std::string& title = table.columns[i].title;
            if (!title.empty()) {
                const bool number = !table.rows.empty() && RightAligned(table.rows.front()[i]);
                m_text += fmt::format("<th scope=\"col\"{}>{}</th>", number ? " class=\"number\"" : "",
                                      HtmlText(title));
            }
        }
        m_text += "</tr></thead><tbody>\n";
        for (const Row& row : table.rows) {
            m_text += "<tr>";
            for (size_t i = 0; i < row.size(); ++i) {
                if (!table.columns[i].title.empty()) {
                    m_text +=
                        fmt::format("<td{}>{}</td>", ClassOf(row[i]), HtmlText(CellText(row[i], m_zone)));
                }
            }
            m_text += "</tr>\n";
        }
        m_text += "</tbody></table></div>\n";
    }

    void AddProse(const Prose& prose) { m_text += "<p>" + HtmlText(prose.text) + "</p>\n"; }

    void AddPicture(const ReportPicture& picture) {
        m_text += "<figure>";
        if (picture.type.empty()) {
            m_text += "<div class=\"none\">" + HtmlText(picture.instead) + "</div>";
        } else {
            m_text += fmt::format(R"(<img alt="{}" src="data:{};base64,{}">)", HtmlText(picture.caption),
                                  picture.type, Base64(picture.bytes));
        }
        if (!picture.caption.empty()) {
            m_text += "<figcaption>" + HtmlText(picture.caption) + "</figcaption>";
        }
        m_text += "</figure>\n";
    }

    const TimeZone& m_zone;
    std::string m_text;
};

} // namespace

std::string ReportPage(const std::string& title, const std::vector<ReportSection>& sections,
                       const TimeZone& zone) {
    Page page(zone);
    for (const ReportSection& section : sections) {
        page.Add(section);
    }
    const std::string style = timeline::kReportStyle;
    return fmt::format(
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src '{}'; "
        "img-src data:; base-uri 'none'; form-action 'none'\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<meta name=\"color-scheme\" content=\"light dark\">\n<title>{}</title>\n<style>{}</style>\n"
        "</head>\n<body>\n<h1>{}</h1>\n{}</body>\n</html>\n",
        PolicyHash(style), HtmlText(title), style, HtmlText(title), page.Text());
}

} // namespace diskaccess
