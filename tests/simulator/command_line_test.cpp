// vantrel-sim as a person starts it: what it prints where, and how it exits.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "simulator/dfuse_file.h"

namespace {

namespace fs = std::filesystem;

struct Outcome {
  std::string out;
  std::string err;
  int exitCode = -1;
};

class CommandLineTest : public testing::Test {
 protected:
  CommandLineTest() {
    EXPECT_NE(mkdtemp(folder_.data()), nullptr);
    fs::create_directory(folder_ + "/tmp");
  }
  ~CommandLineTest() override { fs::remove_all(folder_); }

  // Runs the program in a folder of the test's own. The arguments are words of the shell. The
  // temporary folder must be left as it was.
  Outcome Run(const std::string& arguments, const std::string& temporary = "tmp") {
    const std::string command = "cd '" + folder_ + "' && TMPDIR=" + temporary +
                                " '" VANTREL_SIM "' " + arguments + " >out 2>err";
    const int status = std::system(command.c_str());
    EXPECT_TRUE(WIFEXITED(status)) << arguments;
    EXPECT_TRUE(fs::is_empty(folder_ + "/tmp")) << arguments << " left something behind";
    return {Read("out"), Read("err"), WEXITSTATUS(status)};
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

  std::string folder_ = (fs::temp_directory_path() / "vantrel-XXXXXX").string();
};

void ExpectTells(const std::string& text, const std::vector<std::string>& parts) {
  for (const std::string& part : parts) {
    EXPECT_NE(text.find(part), std::string::npos) << "lacks \"" << part << "\":\n" << text;
  }
}

TEST_F(CommandLineTest, AnswersBadArgumentsWithOneLine) {
  const struct {
    const char* arguments;
    const char* line;
  } cases[] = {
      {"--speed", "The following argument was not expected: --speed"},
      {"fly", "The following argument was not expected: fly"},
      {"--battery", "--battery: 1 required N missing"},
      {"--battery ten", "--battery: takes 0 to 100, or 255 for unknown, not 'ten'"},
      {"--battery 101", "--battery: takes 0 to 100, or 255 for unknown, not '101'"},
      {"--battery 0x20", "--battery: takes 0 to 100, or 255 for unknown, not '0x20'"},
      {"--battery ''", "--battery: takes 0 to 100, or 255 for unknown, not ''"},
      {"--keyboard 1.2.3.x", "--keyboard takes four digits such as 1.0.2.1, not '1.2.3.x'"},
      {"--keyboard 1.2.3.45", "--keyboard takes four digits such as 1.0.2.1, not '1.2.3.45'"},
      {"--keyboard ''", "--keyboard: must not be empty"},
      {"--package ''", "--package: must not be empty"},
      {"--trace wires", "--trace takes wire, calls or all, not 'wires'"},
      {"check", "file is required"},
      {"soak --runs 0", "--runs: takes 1 or more, not '0'"},
      {"soak --seed -1", "--seed: takes 0 or more, not '-1'"},
      {"soak --jobs 65", "--jobs: takes 1 to 64, not '65'"},
      {"--battery 10 soak", "soak excludes --battery"},
      {"soak check", "The following argument was not expected: check"},
  };
  for (const auto& test : cases) {
    const Outcome outcome = Run(test.arguments);
    EXPECT_EQ(outcome.err,
              "vantrel-sim: " + std::string(test.line) + "\nTry vantrel-sim --help.\n");
    EXPECT_EQ(outcome.out, "") << test.arguments;
    EXPECT_EQ(outcome.exitCode, 2) << test.arguments;
  }
}

TEST_F(CommandLineTest, TellsAboutItself) {
  EXPECT_EQ(Run("--version").out, VANTREL_VERSION "\n");
  const Outcome help = Run("--help");
  EXPECT_EQ(help.exitCode, 0);
  ExpectTells(help.out, {"--package FILE.dfu", "--keyboard M.m.model.rev", "--battery N=80",
                         "--realtime", "--trace WHAT", "--version", "soak ", "check "});
  ExpectTells(Run("soak --help").out, {"--runs N=1000", "--seed S=1", "--jobs J=2"});
}

TEST_F(CommandLineTest, UpdatesByDefault) {
  const Outcome outcome = Run("");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.err, "");
  ExpectTells(outcome.out, {"     0.000 s  keyboard  is attached with firmware 1.1.2.1\n",
                            "  user      is told START\n", "  keyboard  is a DFU device\n",
                            "  keyboard  has written 100 % of the firmware\n",
                            "  keyboard  is a keyboard with firmware 1.2.2.1\n",
                            "\nVerdict, read from the keyboard\n"
                            "  firmware before  1.1.2.1\n"
                            "  firmware after   1.2.2.1\n"
                            "  package          1.2.2.1\n"
                            "  flash            equal to the package, byte for byte\n"
                            "  user was told    START, COMPLETE\n",
                            "  result           updated\n"});
  EXPECT_EQ(outcome.out.find("  wire "), std::string::npos);
  EXPECT_EQ(outcome.out.find("elasped"), std::string::npos) << "the service's own output";
  EXPECT_EQ(Run("").out, outcome.out) << "every run is the same";
}

TEST_F(CommandLineTest, SaysWhenNothingCameOfIt) {
  const Outcome outcome = Run("--battery 010");
  EXPECT_EQ(outcome.exitCode, 1);
  ExpectTells(outcome.out,
              {"battery 10 %\n", "  user was told    BATTERY\n", "  firmware after   1.1.2.1\n",
               "  flash            not the package's\n", "  result           NOT updated\n"});
}

TEST_F(CommandLineTest, ShowsTheWireAndTheCallsWhenAsked) {
  const std::string wire = Run("--trace wire").out;
  ExpectTells(wire,
              {"  wire      SET_REPORT 0x17, 64 bytes\n", "  wire      DNLOAD erase 0x08000000\n",
               "  wire      DNLOAD block 2, 1024 bytes\n",
               "  wire      GETSTATUS: bStatus 0, bState 5, poll 0 ms\n"});
  EXPECT_EQ(wire.find("  call "), std::string::npos);
  ExpectTells(Run("--trace all").out, {"  call      WinUsb_ControlTransfer\n", "  wire      DNLOAD",
                                       "elasped time :: 3000ms !!!\n"});
}

TEST_F(CommandLineTest, TakesAPackageOfTheUsersOwn) {
  // Larger than the usual keyboard's memory, and in another place.
  WritePackage("VantrelKb_3.1.2.1.dfu", {{0x08000000, std::vector<u8>(1'000'000, 0x5A)},
                                         {0x1FFF8000, std::vector<u8>(100, 0xA5)}});
  const Outcome outcome = Run("--package VantrelKb_3.1.2.1.dfu");
  EXPECT_EQ(outcome.exitCode, 0) << outcome.out;
  ExpectTells(outcome.out, {"  firmware before  3.0.2.1\n", "  firmware after   3.1.2.1\n"});
  EXPECT_EQ(Run("check VantrelKb_3.1.2.1.dfu").out,
            "version 3.1.2.1\n"
            "device VID_1209&PID_0001\n"
            "target for alternate setting 0, 2 elements\n"
            "  0x08000000 1000000 bytes\n"
            "  0x1FFF8000 100 bytes\n");

  fs::resize_file(folder_ + "/VantrelKb_3.1.2.1.dfu", 300);
  for (const char* const arguments :
       {"--package VantrelKb_3.1.2.1.dfu", "check VantrelKb_3.1.2.1.dfu"}) {
    const Outcome broken = Run(arguments);
    EXPECT_EQ(broken.err,
              "vantrel-sim: VantrelKb_3.1.2.1.dfu is refused: "
              "the file does not end with a DFU suffix of version 1.1a\n");
    EXPECT_EQ(broken.out, "");
    EXPECT_EQ(broken.exitCode, 1);
  }
}

TEST_F(CommandLineTest, SoaksTheSameWayTwice) {
  const Outcome first = Run("soak --runs 3 --seed 7");
  EXPECT_EQ(first.exitCode, 0) << first.out << first.err;
  ExpectTells(first.out, {"3 runs, 0 failed; ", "what happened\n", "words told to the user\n"});
  EXPECT_EQ(Run("soak --runs 3 --seed 7").out, first.out);
  EXPECT_EQ(Run("soak --runs 3 --seed 7 --jobs 1").out, first.out);
}

TEST_F(CommandLineTest, NeedsAFolderToPutTheDriveIn) {
  for (const char* const temporary : {"none", "/dev/null", "/proc"}) {
    const Outcome run = Run("", temporary);
    EXPECT_EQ(run.out, "");
    ExpectTells(run.err, {"vantrel-sim: cannot make a folder for the tablet's drive "});
    EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(Run("soak --runs 1", temporary).exitCode, 1);
  }
}

}  // namespace
