#include "proof/trial_report.h"

#include <algorithm>
#include <cctype>

#include "simulator/setting_lines.h"
#include "simulator/timeline.h"

namespace proof {

namespace {

using simulator::Setting;
using Texts = std::vector<std::string>;
using Counts = std::map<std::string, u64>;

template <auto Field>
constexpr Setting<TrialReport> ReportNumber(const char* name) {
  return {name, "a number",
          [](const TrialReport& report) { return Texts{std::to_string(report.*Field)}; },
          [](TrialReport& report, const std::string& value) {
            return simulator::ReadNumber(value, 0, ~u64{0}, report.*Field);
          }};
}

// No line for an empty one.
template <auto Field>
constexpr Setting<TrialReport> ReportSentence(const char* name) {
  return {name, "a sentence",
          [](const TrialReport& report) {
            return (report.*Field).empty() ? Texts{} : Texts{report.*Field};
          },
          [](TrialReport& report, const std::string& value) {
            report.*Field = value;
            return true;
          }};
}

// A line for each of them: how often, and what.
template <Counts TrialReport::*Field>
constexpr Setting<TrialReport> Counted(const char* name) {
  return {name, "a number and a text",
          [](const TrialReport& report) {
            Texts values;
            for (const auto& [what, count] : report.*Field) {
              values.push_back(std::to_string(count) + " " + what);
            }
            return values;
          },
          [](TrialReport& report, const std::string& value) {
            const std::size_t blank = value.find(' ');
            return blank != std::string::npos &&
                   simulator::ReadNumber(value.substr(0, blank), 0, ~u64{0},
                                         (report.*Field)[value.substr(blank + 1)]);
          },
          [](TrialReport& report) { (report.*Field).clear(); }};
}

Texts WriteViolations(const TrialReport& report) {
  Texts values = report.violations;
  for (std::string& value : values) {
    std::replace(value.begin(), value.end(), '\n', ' ');
  }
  return values;
}

constexpr Setting<TrialReport> ReportLines[] = {
    ReportNumber<&TrialReport::updated>("updated"),
    ReportNumber<&TrialReport::lives>("lives"),
    ReportNumber<&TrialReport::virtualMs>("virtual-ms"),
    ReportNumber<&TrialReport::platformCalls>("platform-calls"),
    ReportNumber<&TrialReport::troubledCalls>("troubled-calls"),
    ReportNumber<&TrialReport::troubledTransfers>("troubled-transfers"),
    ReportNumber<&TrialReport::troubledMemoryRequests>("troubled-memory-requests"),
    ReportNumber<&TrialReport::lastBlockTransfer>("last-block-transfer"),
    Counted<&TrialReport::troubles>("trouble"),
    Counted<&TrialReport::words>("word"),
    {"violation", "a sentence", WriteViolations,
     [](TrialReport& report, const std::string& value) {
       report.violations.push_back(value);
       return true;
     },
     [](TrialReport& report) { report.violations.clear(); }},
    ReportSentence<&TrialReport::keyboard>("keyboard"),
    ReportSentence<&TrialReport::earlyEnd>("early-end"),
};

}  // namespace

std::string ReportText(const TrialReport& report) {
  return simulator::WriteSettings<TrialReport>(ReportLines, report);
}

TrialReport ReadReport(const std::string& text) {
  TrialReport report;
  std::vector<simulator::SettingLine> lines;
  std::string ignored;
  simulator::SplitSettings(text, lines, ignored);
  simulator::SettingReader<TrialReport> reader(ReportLines);
  for (const simulator::SettingLine& line : lines) {
    reader.Take(line, report, ignored);
  }
  return report;
}

std::string At(u64 timeMs) {
  return "at " + simulator::SecondsText(timeMs) + ": ";
}

u64 TimeOfViolation(const std::string& violation) {
  constexpr char At[] = "at ";
  u64 timeMs = ~u64{0};
  if (violation.starts_with(At)) {
    const std::size_t begin = sizeof(At) - 1;
    simulator::ReadTime(violation.substr(begin, violation.find(' ', begin) - begin) + "s", timeMs);
  }
  return timeMs;
}

std::string KindOfViolation(const std::string& violation) {
  std::string kind = violation.substr(0, violation.find('('));
  std::erase_if(kind, [](unsigned char character) { return std::isxdigit(character) != 0; });
  return kind;
}

}  // namespace proof
