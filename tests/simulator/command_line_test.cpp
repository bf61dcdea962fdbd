// vantrel-sim and vantrel-soak as a person starts them: what it prints where, and how it exits.

#include "tests/simulator/command_line.h"

namespace {

TEST_F(CommandLineTest, AnswersBadArgumentsWithOneLine) {
  const std::pair<const char*, const char*> Sim = {"vantrel-sim", VANTREL_SIM};
  const std::pair<const char*, const char*> Soak = {"vantrel-soak", VANTREL_SOAK};
  const struct {
    const std::pair<const char*, const char*>& program;
    const char* arguments;
    const char* line;
  } cases[] = {
      {Sim, "--speed", "The following argument was not expected: --speed"},
      {Sim, "--batery 3",
       "The following arguments were not expected: 3 --batery (did you mean --battery?)"},
      {Sim, "update --trasfer-size=8",
       "The following argument was not expected: --trasfer-size=8 (did you mean --transfer-size?)"},
      {Sim, "chekc x.dfu",
       "The following arguments were not expected: x.dfu chekc (did you mean check?)"},
      {Sim, "fly", "The following argument was not expected: fly"},
      {Sim, "--battery", "--battery: 1 required N missing"},
      {Sim, "--battery 3 --battery 4", "--battery: At Most 1 required but received 2"},
      {Sim, "--battery ''", "--battery: must not be empty"},
      {Sim, "--keyboard ''", "--keyboard: must not be empty"},
      {Sim, "--package ''", "--package: must not be empty"},
      {Sim, "check", "file is required"},
      {Sim, "--battery 10 check x.dfu", "check excludes --battery"},
      {Sim, "update --transfer-size 7", "--transfer-size: takes 8 to 4096, not '7'"},
      {Sim, "pack --sample -o x.dfu --vid 12",
       "--vid: takes four hexadecimal digits such as 1209, not '12'"},
      {Soak, "--runs 0", "--runs: takes 1 or more, not '0'"},
      {Soak, "--seed -1", "--seed: takes 0 or more, not '-1'"},
      {Soak, "--jobs 65", "--jobs: takes 1 to 64, not '65'"},
      {Soak, "--trace wire", "--trace: takes all, not 'wire'"},
      {Soak, "--plan p --seed 3", "--seed excludes --plan"},
      {Soak, "--shrink --json", "--json excludes --shrink"},
      {Soak, "--shrink --trace all", "--shrink excludes --trace"},
  };
  for (const auto& test : cases) {
    const Outcome outcome = Run(test.arguments, "tmp", test.program.second);
    EXPECT_EQ(outcome.err, test.program.first + (": " + std::string(test.line)) + "\nTry " +
                               test.program.first + " --help.\n");
    EXPECT_EQ(outcome.out, "") << test.arguments;
    EXPECT_EQ(outcome.exitCode, 2) << test.arguments;
  }
}

// What can be read and means nothing: the line says it all.
TEST_F(CommandLineTest, AnswersValuesThatMeanNothing) {
  const struct {
    const char* arguments;
    const char* line;
  } cases[] = {
      {"--battery ten", "--battery takes 0 to 100, or 255 for unknown, not 'ten'"},
      {"--battery 101", "--battery takes 0 to 100, or 255 for unknown, not '101'"},
      {"--keyboard 1.2.3.x", "--keyboard takes four digits such as 1.0.2.1, not '1.2.3.x'"},
      {"--keyboard 1.2.3.45", "--keyboard takes four digits such as 1.0.2.1, not '1.2.3.45'"},
      {"--erase-ms -1", "--erase-ms takes 0 to 16777215 milliseconds, not '-1'"},
      {"--attach-at 40", "--attach-at takes a time such as 22.5s or 300ms, not '40'"},
      {"--fault stall@report", "--fault knows there gone, not 'stall'"},
      {"--trace wires", "--trace takes wire, calls, wire,calls or all, not 'wires'"},
      {"--scenario none", "none: cannot be read"},
      {"--scenario tmp", "tmp: cannot be read"},
      {"check x.dfu --map @none",
       "--map takes a memory map such as \"@Internal Flash  /0x08000000/04*016Kg\", not '@none'"},
      {"pack -o x.dfu", "pack takes parts, or --sample without any"},
  };
  for (const auto& test : cases) {
    const Outcome outcome = Run(test.arguments);
    EXPECT_EQ(outcome.err, "vantrel-sim: " + std::string(test.line) + "\n");
    EXPECT_EQ(outcome.out, "") << test.arguments;
    EXPECT_EQ(outcome.exitCode, 2) << test.arguments;
  }
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

TEST_F(CommandLineTest, SaysWhyNothingCameOfIt) {
  using Bytes = std::vector<u8>;
  // The second element's zeros are programmed into the first: the flash can never equal both.
  WritePackage("VantrelKb_1.3.2.1.dfu",
               {{0x08000000, Bytes(1'000'000, 0x5A)}, {0x08000010, Bytes(16, 0)}});
  WritePackage("VantrelKb_1.4.2.1.dfu", {{0x08000000, Bytes(10, 1)}, {0x08000005, Bytes(10, 0)}});
  const struct {
    const char* arguments;
    const char* result;
    int exitCode;
  } cases[] = {
      {"--battery 20", "refused: battery 20 %, 30 % needed", 3},
      {"--keyboard 1.2.2.1", "up to date (the package is not newer)", 3},
      {"--keyboard 1.1.3.1", "refused: the keyboard's model is 3, the package is for 2", 3},
      {"--keyboard 1.1.2.4", "refused: the keyboard's hardware revision is 4, the package is for 1",
       3},
      {"--package VantrelKb_1.3.2.1.dfu",
       "installed over and over: two of its elements overlap at 0x08000010", 1},
      {"--package VantrelKb_1.4.2.1.dfu",
       "installed, but two of its elements overlap at 0x08000005", 1},
  };
  for (const auto& test : cases) {
    const Outcome outcome = Run(test.arguments);
    EXPECT_EQ(outcome.exitCode, test.exitCode) << test.arguments;
    ExpectTells(outcome.out, {"  result           " + std::string(test.result) + "\n",
                              "  flash            not the package's\n"});
  }
}

TEST_F(CommandLineTest, TellsWhatKindOfFileItCannotUse) {
  fs::create_directory(folder_ + "/VantrelKb_1.5.2.1.dfu");
  std::ofstream(folder_ + "/VantrelKb_1.6.2.1.dfu").close();
  fs::resize_file(folder_ + "/VantrelKb_1.6.2.1.dfu", u64{5} << 30);
  std::ofstream(folder_ + "/firmware.dfu") << "x";
  std::ofstream(folder_ + "/firmware.bin") << "x";
  const struct {
    const char* file;
    const char* reason;
    int exitCode;
  } cases[] = {
      {"none.dfu", "there is no such file", 2},
      {"VantrelKb_1.5.2.1.dfu", "it is not a file", 2},
      {"VantrelKb_1.6.2.1.dfu",
       "it is larger than any keyboard's flash (268435456 bytes at the most)", 1},
      {"firmware.dfu", "its name carries no version", 3},
      {"firmware.bin", "its name does not end in .dfu, so the service does not find it", 3},
  };
  for (const auto& test : cases) {
    for (const char* const command : {"--package ", "check "}) {
      const Outcome outcome = Run(std::string(command) + test.file);
      EXPECT_EQ(outcome.exitCode, test.exitCode) << command << test.file;
      ExpectTells(outcome.err, {std::string(test.file) + " is refused: " + test.reason});
    }
  }
}

TEST_F(CommandLineTest, ShowsTheWireAndTheCallsWhenAsked) {
  const std::string wire = Run("--trace wire").out;
  ExpectTells(wire,
              {"  wire      SET_REPORT 0x17, 64 bytes\n", "  wire      DNLOAD erase 0x08000000\n",
               "  wire      DNLOAD block 2, 1024 bytes to 0x08000000\n",
               "  wire      DNLOAD block 3, 1024 bytes to 0x08000400\n",
               "  wire      GETSTATUS: OK, dfuDNLOAD-IDLE, poll 0 ms\n"});
  EXPECT_EQ(wire.find("  call "), std::string::npos);
  const std::string all = Run("--trace all").out;
  ExpectTells(all,
              {"  call      thread 1002: Sleep(10000) -> done\n",
               "  call      thread 1002: FindNextFileA(*, *) -> error 18\n",
               "WinUsb_ControlTransfer(*, request 3 value 0 length 6, *, 6, *, null) -> done\n",
               "OutputDebugStringW(\"Success:: get Version number\\n\") -> done\n",
               "  wire      DNLOAD", "elasped time :: 3000ms !!!\n"});
  EXPECT_EQ(Run("--trace wire,calls").out, Run("--trace wire,calls").out)
      << "one can be compared with another";
}

TEST_F(CommandLineTest, TakesAPackageOfTheUsersOwn) {
  // Larger than the usual keyboard's memory, and in another place.
  WritePackage("VantrelKb_3.1.2.1.dfu", {{0x08000000, std::vector<u8>(1'000'000, 0x5A)},
                                         {0x1FFF8000, std::vector<u8>(100, 0xA5)}});
  const Outcome outcome = Run("--package VantrelKb_3.1.2.1.dfu");
  EXPECT_EQ(outcome.exitCode, 0) << outcome.out;
  ExpectTells(outcome.out, {"  firmware before  3.0.2.1\n", "  firmware after   3.1.2.1\n",
                            "  memory           made up where the package writes"});
  fs::resize_file(folder_ + "/VantrelKb_3.1.2.1.dfu", 300);
  const Outcome broken = Run("--package VantrelKb_3.1.2.1.dfu");
  ExpectTells(broken.err, {"is refused: the file does not end with a DFU suffix of version 1.1a"});
  EXPECT_EQ(broken.exitCode, 1);
}

TEST_F(CommandLineTest, SoaksTheSameWayTwice) {
  const Outcome first = RunSoak("--runs 3 --seed 7");
  EXPECT_EQ(first.exitCode, 0) << first.out << first.err;
  ExpectTells(first.out, {"3 runs, 0 failed; ", "what happened\n", "words told to the user\n"});
  EXPECT_EQ(RunSoak("--runs 3 --seed 7").out, first.out);
  EXPECT_EQ(RunSoak("--runs 3 --seed 7 --jobs 1").out, first.out);
  EXPECT_EQ(RunSoak("--runs 1", "none").exitCode, 1);
}

TEST_F(CommandLineTest, AddsUpTheFiguresOfSoaksThatRanApart) {
  const std::string whole = RunSoak("--runs 4 --seed 7 --json").out;
  ExpectTells(whole, {"{\"runs\":4,\"failed\":0,", "\"words\":{"});
  const std::string parts =
      RunSoak("--runs 1 --seed 7 --json").out + RunSoak("--runs 3 --seed 8 --json --jobs 3").out;
  std::ofstream(folder_ + "/parts") << parts;
  EXPECT_EQ(Run("<parts", "tmp", ADD_FIGURES).out, whole);
}

TEST_F(CommandLineTest, TellsAPlanAndRunsIt) {
  const Outcome told = RunSoak("--seed 7 --runs 1 --trace all");
  const std::string plan = told.err.substr(0, told.err.find("\n\n"));
  ExpectTells(told.err, {"# seed 7\nkeyboard = 1.1.2.1\nmap = \"@", "\n-- life 1 of the service\n",
                         "  service   reports start pending\n"});
  std::ofstream(folder_ + "/plan") << plan;
  const Outcome again = RunSoak("--plan plan --trace all");
  EXPECT_EQ(again.out, "the plan kept the promise\n");
  EXPECT_EQ(again.exitCode, 0);
  EXPECT_EQ(again.err.substr(again.err.find('\n')), told.err.substr(told.err.find('\n')))
      << "the same to the last line";

  const Outcome small = RunSoak("--plan plan --shrink");
  EXPECT_EQ(small.out, "the plan kept the promise: there is nothing to make smaller\n");
  EXPECT_EQ(small.exitCode, 1);
  const struct {
    const char* file;
    const char* line;
  } cases[] = {
      {"none", "vantrel-soak: cannot read none\n"},
      {"tmp", "vantrel-soak: cannot read tmp\n"},
      {"out", "vantrel-soak: the plan: the package needs a target for alternate setting 0\n"},
  };
  for (const auto& test : cases) {
    const Outcome refused = RunSoak(std::string("--plan ") + test.file);
    EXPECT_EQ(refused.err, test.line);
    EXPECT_EQ(refused.exitCode, 1);
  }
}

}  // namespace
