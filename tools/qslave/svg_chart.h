// The tank levels drawn as an SVG bar chart: one bar per circuit, its full
// height standing for the circuit's maximum, filled up to the current
// level, with marks at the reserve and at the threshold.
#ifndef QSLAVE_CLI_SVG_CHART_H
#define QSLAVE_CLI_SVG_CHART_H

#include <string>
#include <vector>

struct ChartBar {
  int circuit;
  std::string label;  // the colourant code; "-" for none
  bool known;         // levels readable, maximum above 0
  double current, reserve, maximum, threshold;
  int master;         // non-zero: shares the reservoir of this circuit
  std::string empty_note;  // for a circuit without tank or colourant
};

// The whole SVG document. Every text is escaped.
std::string LevelChart(const std::string& title, const std::vector<ChartBar>& bars);

// text made safe for XML character data and attribute values: markup
// characters as entities, bytes that are not UTF-8 as the Latin-1
// characters they stand for in dBase tables, control characters as U+FFFD.
std::string XmlEscape(const std::string& text);

#endif
