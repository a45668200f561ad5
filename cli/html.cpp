// Escapes texts and formats elements of HTML.
// SPDX-License-Identifier: MIT
#include "cli/html.h"

#include "cli/text.h"

namespace tarn
{

std::string escapedHtml(const std::string& text)
{
    std::string html;
    for (const char c : printable(text)) {
        switch (c) {
        case '&':
            html += "&amp;";
            break;
        case '<':
            html += "&lt;";
            break;
        case '>':
            html += "&gt;";
            break;
        case '"':
            html += "&quot;";
            break;
        default:
            html += c;
        }
    }
    return html;
}

std::string element(const std::string& tag, const std::string& attributes, const std::string& content)
{
    std::string html = "<";
    html += tag;
    if (!attributes.empty()) html.append(" ").append(attributes);
    return html.append(">").append(content).append("</").append(tag).append(">\n");
}

std::string block(const std::string& tag, const std::string& attributes, const std::string& content)
{
    return element(tag, attributes, std::string(1, '\n').append(content));
}

} // namespace tarn
