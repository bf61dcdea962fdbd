#include "simulator/report.h"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "simulator/report_page.h"

namespace simulator {

namespace {

// Stands once in the page, where a script reads it as data.
constexpr char RunMark[] = "RUN_DATA";

// Beside its place, because only within one file system a rename leaves no moment with half a file.
std::string BesideName(const std::string& path) {
  return path + ".part";
}

// A text of the run must not end the script that holds it.
std::string ScriptText(const Json& told) {
  std::string text = told.dump(-1, ' ', true, Json::error_handler_t::replace);
  for (std::size_t at = 0; (at = text.find('<', at)) != std::string::npos;) {
    text.replace(at, 1, "\\u003c");
  }
  return text;
}

bool WriteBesideAs(const std::string& path, const std::string& text, std::string& reason) {
  reason = "cannot be written";
  if (std::filesystem::is_directory(path)) {
    return false;
  }
  std::ofstream file(BesideName(path), std::ios::binary);
  file << text;
  file.close();
  return file.good();
}

}  // namespace

// A run in real time takes half a minute. It would be a pity to find out afterwards.
bool CanWriteReport(const std::string& path, std::string& reason) {
  const bool can = WriteBesideAs(path, "", reason);
  std::error_code ignored;
  std::filesystem::remove(BesideName(path), ignored);
  return can;
}

bool WriteReport(const std::string& path, const Json& told, std::string& reason) {
  std::string page = ReportPage;
  page.replace(page.find(RunMark), sizeof(RunMark) - 1, ScriptText(told));
  if (!WriteBesideAs(path, page, reason)) {
    return false;
  }
  std::error_code error;
  std::filesystem::rename(BesideName(path), path, error);
  return !error;
}

}  // namespace simulator
