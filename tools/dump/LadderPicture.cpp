// SPDX-License-Identifier: MIT
#include "dump/LadderPicture.h"

#include "common/FrameWords.h"
#include "common/HexText.h"
#include "dump/DumpLines.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

using namespace CANTransportFrame;

namespace {

constexpr std::size_t mostArrows = 1000;
constexpr std::size_t mostLines = 16;
// In pixels.
constexpr double top = 48;
constexpr double leftLine = 100;
constexpr double distance = 200; ///< From one line to the next.
constexpr double labelHeight = 15;
constexpr double labelWidth = 420;

constexpr const char* red = "#c62828";

[[gnu::format(printf, 1, 2)]] std::string text(const char* format, ...)
{
    char buffer[256];
    va_list values;
    va_start(values, format);
    const int size = std::vsnprintf(buffer, sizeof buffer, format, values);
    va_end(values);
    return {buffer, std::min(static_cast<std::size_t>(size), sizeof buffer - 1)};
}

std::string escaped(const std::string& plain)
{
    std::string safe;
    for (const char character : plain) {
        safe += character == '<'   ? "&lt;"
                : character == '>' ? "&gt;"
                : character == '&' ? "&amp;"
                                   : std::string(1, character);
    }
    return safe;
}

std::string label(double x, double y, const char* anchor, const char* colour,
                  const std::string& content)
{
    return text("<text x='%.1f' y='%.1f' text-anchor='%s' fill='%s'>", x, y, anchor, colour) +
           escaped(content) + "</text>\n";
}

std::string stroke(double fromX, double fromY, double toX, double toY, const char* colour)
{
    return text("<path d='M%.1f %.1fL%.1f %.1f' stroke='%s'/>\n", fromX, fromY, toX, toY, colour);
}

double lineX(std::size_t line) { return leftLine + distance * static_cast<double>(line); }

const char* colourOf(Outcome outcome)
{
    switch (outcome) {
    case Outcome::acknowledged:
        return "#43a047";
    case Outcome::refused:
        return red;
    case Outcome::restarted:
    case Outcome::incomplete:
        break;
    }
    return "#fb8c00";
}

std::string scale(double msPerPixel, double height)
{
    constexpr double ticks = 8;
    const double least = msPerPixel * height / ticks;
    double step = std::pow(10, std::floor(std::log10(least)));
    for (const double factor : {2.0, 2.5, 2.0}) {
        step *= step < least ? factor : 1;
    }
    std::string svg;
    for (double ms = 0; ms <= msPerPixel * height; ms += step) {
        const double y = top + ms / msPerPixel;
        svg += label(leftLine - 36, y + 4, "end", "#757575", text("%g ms", ms));
        svg += stroke(leftLine - 30, y, leftLine - 22, y, "#757575");
    }
    return svg;
}

} // namespace

void LadderPicture::add(const SentFrame& sent, const std::string& from, const std::string& to,
                        const std::string& fault)
{
    const std::size_t sender = lineOf(from);
    const std::size_t receiver = to.empty() ? sender : lineOf(to);
    if (arrows.size() == mostArrows || sender == mostLines || receiver == mostLines) {
        ++framesLeftOut;
        return;
    }
    arrows.push_back({sent, sender, receiver, fault});
    if (kindOf(sent.frame.data) <= CTP_FIRST_FRAME) {
        started[sender] = sent.number;
    }
}

void LadderPicture::end(const std::string& from, Outcome outcome, std::uint64_t last)
{
    const auto start = started.find(lineOf(from));
    if (start != started.end()) {
        allBars.push_back({start->first, start->second, last, outcome});
        started.erase(start);
    }
}

std::size_t LadderPicture::lineOf(const std::string& name)
{
    const auto known = std::find(lines.begin(), lines.end(), name);
    if (known == lines.end() && lines.size() == mostLines) {
        return mostLines;
    }
    const auto index = static_cast<std::size_t>(known - lines.begin());
    if (known == lines.end()) {
        lines.push_back(name);
    }
    return index;
}

double LadderPicture::labelX() const { return lineX(lines.size() - 1) + 40; }

/// Sets the heights: on average, the labels fit. @return the height of all.
double LadderPicture::place(std::vector<Arrow>& sorted, bool timed, double& msPerPixel) const
{
    const double height =
        labelHeight * static_cast<double>(std::max<std::size_t>(sorted.size(), 8));
    const auto first = sorted.front().sent.time;
    const auto last = sorted.back().sent.time;
    const bool toScale = timed && first && last && *last > *first;
    const double duration = toScale ? static_cast<double>((*last - *first).count()) / 1000 : 0;
    msPerPixel = duration / height;
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        const auto time = sorted[i].sent.time;
        const double ms =
            toScale && time ? static_cast<double>((*time - *first).count()) / 1000 : 0;
        sorted[i].y = top + (toScale ? ms / msPerPixel : labelHeight * static_cast<double>(i));
    }
    return height;
}

std::string LadderPicture::bars(const std::vector<Arrow>& sorted) const
{
    const auto heightOf = [&](std::uint64_t number) {
        const auto after = std::find_if(sorted.begin(), sorted.end(), [&](const Arrow& arrow) {
            return arrow.sent.number >= number;
        });
        return after == sorted.end() ? sorted.back().y : after->y;
    };
    std::string svg;
    for (const Bar& bar : allBars) {
        const double begin = heightOf(bar.first);
        svg += text("<rect x='%.1f' y='%.1f' width='8' height='%.1f' fill='%s'/>\n",
                    lineX(bar.line) - 4, begin, std::max(heightOf(bar.last) - begin, 2.0),
                    colourOf(bar.outcome));
    }
    return svg;
}

std::string LadderPicture::arrow(const Arrow& arrow, double labelY) const
{
    const auto& data = arrow.sent.frame.data;
    const char* const colour = arrow.fault.empty() ? "#263238" : red;
    const bool known = arrow.from != arrow.to;
    const double from = lineX(arrow.from);
    const double to = known ? lineX(arrow.to) : from + distance / 3;
    const double back = to > from ? -7 : 7;
    std::string svg = stroke(from, arrow.y, to, arrow.y, colour);
    svg += text("<path d='M%.1f %.1fl%.1f -3v6z' fill='%s'/>\n", to, arrow.y, back, colour);
    svg += stroke(lineX(lines.size() - 1) + 6, arrow.y, labelX() - 4, labelY, "#cfd8dc");
    const std::size_t length = isAnswer(arrow.sent) ? 0 : arrow.sent.frame.len;
    const std::size_t head = std::min<std::size_t>(kindOf(data) == CTP_FIRST_FRAME ? 2 : 1, length);
    std::string words = lines[arrow.from] + "  " + frameWords(arrow.sent.frame) +
                        (head < length ? "  " : "") + hexText(data + head, length - head, " ");
    words += arrow.fault.empty() ? "" : "  (" + arrow.fault + ")";
    return svg + label(labelX(), labelY + 4, "start", colour, words);
}

std::string LadderPicture::svg(bool timed) const
{
    auto sorted = arrows;
    std::sort(sorted.begin(), sorted.end(), [](const Arrow& left, const Arrow& right) {
        return left.sent.number < right.sent.number;
    });
    double msPerPixel = 0;
    const double height = sorted.empty() ? 0 : place(sorted, timed, msPerPixel);
    std::string svg = msPerPixel == 0 ? "" : scale(msPerPixel, height);
    for (std::size_t line = 0; line < lines.size(); ++line) {
        svg += label(lineX(line), top - 22, "middle", "#263238", lines[line]);
        svg += stroke(lineX(line), top - 14, lineX(line), top + height + 14, "#90a4ae");
    }
    svg += sorted.empty() ? "" : bars(sorted);
    double labelY = 0;
    for (const Arrow& next : sorted) {
        labelY = std::max(next.y, labelY + labelHeight);
        svg += arrow(next, labelY);
    }
    const double width = labelX() + labelWidth;
    return text("<svg xmlns='http://www.w3.org/2000/svg' width='%.0f' height='%.0f' "
                "font-family='monospace' font-size='12' xml:space='preserve'>\n"
                "<rect width='100%%' height='100%%' fill='white'/>\n",
                width, std::max(top + height, labelY) + 28) +
           svg + "</svg>";
}
