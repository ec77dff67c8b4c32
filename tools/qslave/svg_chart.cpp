#include "svg_chart.h"

#include <stdio.h>

#include <algorithm>

namespace {

const double kMargin = 20.0;
const double kSlot = 100.0;  // horizontal room of one circuit
const double kBar = 56.0;
const double kTop = 60.0;    // below the title and the percentages
const double kPlot = 240.0;  // the height of a full bar
const double kBelow = 90.0;  // labels and legend

std::string Num(double value) {
  char text[64];
  snprintf(text, sizeof text, "%.1f", value);
  return text;
}

std::string Qty(double value) {
  char text[64];
  snprintf(text, sizeof text, "%.3f", value);
  return text;
}

// Height of a level on a bar whose full height is the maximum.
double Fraction(double value, double maximum) {
  if (!(maximum > 0.0)) return 0.0;
  return std::min(1.0, std::max(0.0, value / maximum));
}

// Red below the reserve, amber below twice the reserve, green above: the
// library's own scale of "enough".
const char* FillColour(const ChartBar& bar) {
  if (bar.current < bar.reserve) return "#d32f2f";
  if (bar.current < bar.reserve + bar.reserve) return "#f9a825";
  return "#43a047";
}

// The length of a valid UTF-8 sequence starting at text[i], 0 if none.
size_t Utf8Length(const std::string& text, size_t i) {
  const unsigned char c = static_cast<unsigned char>(text[i]);
  size_t length = 0;
  if (c >= 0xC2 && c <= 0xDF) length = 2;
  else if (c >= 0xE0 && c <= 0xEF) length = 3;
  else if (c >= 0xF0 && c <= 0xF4) length = 4;
  else return 0;
  if (i + length > text.size()) return 0;
  for (size_t k = 1; k < length; ++k) {
    if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return 0;
  }
  return length;
}

void Line(std::string* svg, const std::string& text) {
  *svg += text;
  *svg += '\n';
}

void Bar(std::string* svg, const ChartBar& bar, size_t index) {
  const double x = kMargin + kSlot * index + (kSlot - kBar) / 2;
  const double centre = kMargin + kSlot * index + kSlot / 2;
  const std::string circuit = std::to_string(bar.circuit);
  Line(svg, "<g class=\"circuit\" id=\"circuit-" + circuit + "\">");
  std::string tip = "circuit " + circuit + ", " + bar.label + ": ";
  if (!bar.empty_note.empty()) {
    tip += bar.empty_note;
  } else if (!bar.known) {
    tip += "levels unknown";
  } else {
    tip += Qty(bar.current) + " of " + Qty(bar.maximum) + ", reserve " + Qty(bar.reserve) +
           ", threshold " + Qty(bar.threshold);
    if (bar.master != 0) tip += "; shares the reservoir of circuit " + std::to_string(bar.master);
  }
  Line(svg, "<title>" + XmlEscape(tip) + "</title>");
  Line(svg, "<rect class=\"capacity\" x=\"" + Num(x) + "\" y=\"" + Num(kTop) + "\" width=\"" +
                Num(kBar) + "\" height=\"" + Num(kPlot) +
                "\" fill=\"#f5f5f5\" stroke=\"#616161\"" +
                (bar.master != 0 ? " stroke-dasharray=\"5 3\"" : "") + "/>");
  if (bar.known && bar.empty_note.empty()) {
    const double filled = kPlot * Fraction(bar.current, bar.maximum);
    Line(svg, "<rect class=\"level\" x=\"" + Num(x) + "\" y=\"" + Num(kTop + kPlot - filled) +
                  "\" width=\"" + Num(kBar) + "\" height=\"" + Num(filled) + "\" fill=\"" +
                  FillColour(bar) + "\"" + (bar.master != 0 ? " fill-opacity=\"0.45\"" : "") +
                  "/>");
    const double reserve_y = kTop + kPlot * (1.0 - Fraction(bar.reserve, bar.maximum));
    Line(svg, "<line class=\"reserve\" x1=\"" + Num(x - 4) + "\" y1=\"" + Num(reserve_y) +
                  "\" x2=\"" + Num(x + kBar + 4) + "\" y2=\"" + Num(reserve_y) +
                  "\" stroke=\"#b71c1c\" stroke-width=\"2\" stroke-dasharray=\"4 2\"/>");
    if (bar.threshold > 0.0) {
      const double threshold_y = kTop + kPlot * (1.0 - Fraction(bar.threshold, bar.maximum));
      Line(svg, "<line class=\"threshold\" x1=\"" + Num(x - 4) + "\" y1=\"" + Num(threshold_y) +
                    "\" x2=\"" + Num(x + kBar + 4) + "\" y2=\"" + Num(threshold_y) +
                    "\" stroke=\"#0d47a1\" stroke-width=\"2\"/>");
    }
    const int percent = static_cast<int>(100.0 * Fraction(bar.current, bar.maximum) + 0.5);
    Line(svg, "<text class=\"value\" x=\"" + Num(centre) + "\" y=\"" + Num(kTop - 6) +
                  "\" text-anchor=\"middle\" font-size=\"11\">" + std::to_string(percent) +
                  "%</text>");
  }
  Line(svg, "<text class=\"label\" x=\"" + Num(centre) + "\" y=\"" + Num(kTop + kPlot + 18) +
                "\" text-anchor=\"middle\" font-size=\"13\" font-weight=\"bold\">" +
                XmlEscape(bar.label) + "</text>");
  Line(svg, "<text class=\"circuit-number\" x=\"" + Num(centre) + "\" y=\"" +
                Num(kTop + kPlot + 34) + "\" text-anchor=\"middle\" font-size=\"11\">circuit " +
                circuit + "</text>");
  std::string note = bar.empty_note;
  if (note.empty() && bar.master != 0) note = "shares circuit " + std::to_string(bar.master);
  if (note.empty() && !bar.known) note = "levels unknown";
  if (!note.empty()) {
    Line(svg, "<text class=\"note\" x=\"" + Num(centre) + "\" y=\"" + Num(kTop + kPlot + 50) +
                  "\" text-anchor=\"middle\" font-size=\"10\" font-style=\"italic\">" +
                  XmlEscape(note) + "</text>");
  }
  Line(svg, "</g>");
}

}  // namespace

std::string XmlEscape(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    switch (c) {
      case '&': out += "&amp;"; continue;
      case '<': out += "&lt;"; continue;
      case '>': out += "&gt;"; continue;
      case '"': out += "&quot;"; continue;
      case '\'': out += "&apos;"; continue;
      default: break;
    }
    if (c < 0x20 || c == 0x7F) {
      out += "&#xFFFD;";
    } else if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (const size_t length = Utf8Length(text, i)) {
      out.append(text, i, length);
      i += length - 1;
    } else {
      char ref[16];
      snprintf(ref, sizeof ref, "&#x%02X;", c);
      out += ref;
    }
  }
  return out;
}

std::string LevelChart(const std::string& title, const std::vector<ChartBar>& bars) {
  const double width = 2 * kMargin + kSlot * std::max<size_t>(bars.size(), 1);
  const double height = kTop + kPlot + kBelow;
  std::string svg;
  Line(&svg, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
  Line(&svg, "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + Num(width) + "\" height=\"" +
                 Num(height) + "\" viewBox=\"0 0 " + Num(width) + " " + Num(height) +
                 "\" font-family=\"sans-serif\">");
  Line(&svg, "<title>" + XmlEscape(title) + "</title>");
  Line(&svg, "<rect class=\"background\" x=\"0\" y=\"0\" width=\"" + Num(width) +
                 "\" height=\"" + Num(height) + "\" fill=\"#ffffff\"/>");
  Line(&svg, "<text class=\"title\" x=\"" + Num(kMargin) +
                 "\" y=\"24\" font-size=\"16\" font-weight=\"bold\">" + XmlEscape(title) +
                 "</text>");
  for (size_t i = 0; i < bars.size(); ++i) Bar(&svg, bars[i], i);
  const double legend_y = kTop + kPlot + 76;
  Line(&svg, "<g class=\"legend\" font-size=\"11\">");
  Line(&svg, "<line x1=\"" + Num(kMargin) + "\" y1=\"" + Num(legend_y - 4) + "\" x2=\"" +
                 Num(kMargin + 24) + "\" y2=\"" + Num(legend_y - 4) +
                 "\" stroke=\"#b71c1c\" stroke-width=\"2\" stroke-dasharray=\"4 2\"/>");
  Line(&svg, "<text x=\"" + Num(kMargin + 30) + "\" y=\"" + Num(legend_y) +
                 "\">reserve</text>");
  Line(&svg, "<line x1=\"" + Num(kMargin + 100) + "\" y1=\"" + Num(legend_y - 4) + "\" x2=\"" +
                 Num(kMargin + 124) + "\" y2=\"" + Num(legend_y - 4) +
                 "\" stroke=\"#0d47a1\" stroke-width=\"2\"/>");
  Line(&svg, "<text x=\"" + Num(kMargin + 130) + "\" y=\"" + Num(legend_y) +
                 "\">threshold</text>");
  Line(&svg, "<text x=\"" + Num(kMargin + 210) + "\" y=\"" + Num(legend_y) +
                 "\">red: below the reserve, amber: below twice the reserve</text>");
  Line(&svg, "</g>");
  Line(&svg, "</svg>");
  return svg;
}
