// The programs as a person starts them, each in a folder of the test's own.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "simulator/dfuse_file.h"
#include "simulator/host_folder.h"

namespace fs = std::filesystem;

struct Outcome {
  std::string out;
  std::string err;
  int exitCode = -1;
};

class CommandLineTest : public testing::Test {
 protected:
  CommandLineTest() { fs::create_directory(folder_ + "/tmp"); }

  // Runs the program in a folder of the test's own. The arguments are words of the shell. The
  // temporary folder must be left as it was.
  Outcome Run(const std::string& arguments, const std::string& temporary = "tmp",
              const std::string& program = VANTREL_SIM) {
    const std::string command = "cd '" + folder_ + "' && TMPDIR=" + temporary + " timeout 20 '" +
                                program + "' " + arguments + " >out 2>err";
    const int status = std::system(command.c_str());
    EXPECT_TRUE(WIFEXITED(status)) << arguments;
    EXPECT_TRUE(fs::is_empty(folder_ + "/tmp")) << arguments << " left something behind";
    return {Read("out"), Read("err"), WEXITSTATUS(status)};
  }

  Outcome RunSoak(const std::string& arguments, const std::string& temporary = "tmp") {
    return Run(arguments, temporary, VANTREL_SOAK);
  }

  std::string Read(const std::string& name) const {
    std::ifstream file(folder_ + "/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  void WritePackage(const std::string& name, const std::vector<simulator::DfuSeElement>& elements) {
    simulator::DfuSeFile file;
    file.targets.emplace_back().elements = elements;
    const std::vector<u8> bytes = BuildDfuSe(file);
    std::ofstream(folder_ + "/" + name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  }

  const simulator::HostFolder own_;
  const std::string& folder_ = own_.path();
};

inline void ExpectTells(const std::string& text, const std::vector<std::string>& parts) {
  for (const std::string& part : parts) {
    EXPECT_NE(text.find(part), std::string::npos) << "lacks \"" << part << "\":\n" << text;
  }
}
