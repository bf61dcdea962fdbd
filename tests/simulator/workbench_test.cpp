// The commands for people who make firmware packages: check, decide and pack.

#include <nlohmann/json.hpp>

#include "tests/simulator/command_line.h"

namespace {

using Json = nlohmann::ordered_json;
using Bytes = std::vector<u8>;

constexpr char Map[] = " --map '@Internal Flash  /0x08000000/04*016Kg,01*064Ka,01*064Kg'";

class WorkbenchTest : public CommandLineTest {
 protected:
  // What a command tells on standard output alone when it is asked for JSON.
  Json RunForJson(const std::string& arguments, int exitCode) {
    const Outcome outcome = Run(arguments + " --json");
    EXPECT_EQ(outcome.exitCode, exitCode) << arguments << outcome.err;
    Json json = Json::parse(outcome.out, nullptr, false);
    EXPECT_FALSE(json.is_discarded()) << arguments << outcome.out;
    EXPECT_EQ(json["exitCode"], exitCode) << arguments;
    return json;
  }

  void Write(const std::string& name, const std::string& bytes) {
    std::ofstream(folder_ + "/" + name, std::ios::binary) << bytes;
  }
};

TEST_F(WorkbenchTest, PlansOnTheKeyboardsOwnMemory) {
  // 16 KiB and a half in sectors that take it, 20 bytes in one that takes none, 50,000 in no
  // sector.
  WritePackage("VantrelKb_3.2.2.1.dfu", {{0x08000000, Bytes(24'576, 0x5A)},
                                         {0x08010000, Bytes(20, 1)},
                                         {0x20000000, Bytes(50'000, 1)}});
  const Json check =
      RunForJson("check VantrelKb_3.2.2.1.dfu --transfer-size 2048" + std::string(Map), 0);
  const Json& file = check["files"][0];
  const Json& plan = file["plan"];
  EXPECT_EQ(plan["sectorsErased"], 2) << check;
  EXPECT_EQ(plan["bytesErased"], 32'768);
  EXPECT_EQ(plan["bytesWritten"], 24'576);
  EXPECT_EQ(plan["bytesErasedOnly"], 8'192);
  EXPECT_EQ(plan["bytesDropped"], 50'020);
  EXPECT_EQ(plan["blocks"], 12);
  EXPECT_EQ(plan["result"],
            "installed, but 50,020 bytes for 0x08010000 fell outside the keyboard's memory");
  EXPECT_FALSE(plan.contains("updateMs")) << "it came to no end";
  EXPECT_EQ(file["warnings"].size(), 1u);

  WritePackage("VantrelKb_3.3.2.1.dfu", {{0x08000000, Bytes(24'576, 0x5A)}});
  EXPECT_EQ(
      RunForJson("check --strict VantrelKb_3.3.2.1.dfu VantrelKb_3.2.2.1.dfu" + std::string(Map),
                 1)["files"][0]["plan"]["result"],
      "updated");
  const Json run = RunForJson("update VantrelKb_3.3.2.1.dfu" + std::string(Map), 0);
  EXPECT_EQ(run["result"], "updated");
  EXPECT_EQ(run["updateMs"], RunForJson("check VantrelKb_3.3.2.1.dfu" + std::string(Map),
                                        0)["files"][0]["plan"]["updateMs"]);
}

TEST_F(WorkbenchTest, TellsWhichGateIsClosed) {
  const struct {
    const char* arguments;
    std::vector<std::string> outcomes;
    const char* word;
  } cases[] = {
      {"", {"open", "open", "open", "open"}, "START"},
      {"--battery 29", {"open", "open", "open", "closed"}, "BATTERY"},
      {"--keyboard 1.2.2.1", {"open", "open", "closed", "not asked"}, ""},
      {"--keyboard 1.1.3.1", {"open", "closed", "not asked", "not asked"}, ""},
      {"--keyboard 1.1.3.2", {"closed", "not asked", "not asked", "not asked"}, ""},
  };
  for (const auto& test : cases) {
    const bool opens = std::string(test.word) == "START";
    const Json decision = RunForJson("decide " + std::string(test.arguments), opens ? 0 : 3);
    std::vector<std::string> outcomes;
    for (const Json& gate : decision["gates"]) {
      outcomes.push_back(gate["outcome"]);
    }
    EXPECT_EQ(outcomes, test.outcomes) << test.arguments;
    EXPECT_EQ(decision["word"], test.word) << test.arguments;
  }
  ExpectTells(Run("decide --battery 20").out,
              {"  battery            20 %   needed  30 %   closed\n",
               "result   refused: battery 20 %, 30 % needed; the user would be told BATTERY\n"});
}

TEST_F(WorkbenchTest, PacksWhatTheServiceTakes) {
  Write("boot.bin", std::string(300, 'b'));
  Write("app.hex", ":020000040800F2\n:0201000041427A\n:00000001FF\n");
  const Outcome pack = Run(
      "pack -o VantrelKb_1.3.2.1.dfu --firmware 1.3.2.1 --name Keys 0x08004000:boot.bin app.hex");
  EXPECT_EQ(pack.exitCode, 0) << pack.err;
  const Json file = RunForJson("check --strict VantrelKb_1.3.2.1.dfu", 0)["files"][0];
  EXPECT_EQ(file["targets"].dump(),
            R"([{"alternateSetting":0,"name":"Keys","elements":[{"address":134217984,"bytes":2},)"
            R"({"address":134234112,"bytes":300}]}])");
  EXPECT_EQ(Run("update VantrelKb_1.3.2.1.dfu").exitCode, 0);

  EXPECT_EQ(Run("pack --sample -o VantrelKb_1.2.2.1.dfu").exitCode, 0);
  EXPECT_EQ(Run("decide VantrelKb_1.2.2.1.dfu").exitCode, 0);
}

TEST_F(WorkbenchTest, PacksNothingThatWouldDisappoint) {
  Write("a.bin", "aaaa");
  Write("b.hex", "no hex");
  fs::create_directory(folder_ + "/d.bin");
  const struct {
    const char* arguments;
    const char* reason;
    int exitCode;
  } cases[] = {
      {"-o VantrelKb_1.3.2.1.dfu 0x10:a.bin 0x13:a.bin",
       "two of its elements overlap at 0x00000013", 1},
      {"-o VantrelKb_1.3.2.1.dfu 0xFFFFFFFD:a.bin", "0xFFFFFFFD runs past the end of memory", 1},
      {"-o VantrelKb_1.3.2.1.dfu --firmware 1.3.2.2 0x10:a.bin",
       "its name would be read as version 1.3.2.1, not 1.3.2.2", 1},
      {"-o VantrelKb_1.3.2.12.dfu 0x10:a.bin", "another digit stands beside it", 1},
      {"-o firmware.dfu 0x10:a.bin", "its name carries no version", 3},
      {"-o VantrelKb_1.3.2.1.dfu 16:a.bin", "16:a.bin: takes 0xADDRESS:FILE", 2},
      {"-o VantrelKb_1.3.2.1.dfu 0x10:d.bin", "d.bin: cannot be read", 2},
      {"-o VantrelKb_1.3.2.1.dfu b.hex", "b.hex: line 1 is no sound record", 2},
      {"-o none/VantrelKb_1.3.2.1.dfu 0x10:a.bin", "cannot be written there", 2},
      {"-o VantrelKb_1.3.2.1.dfu --alt 1 0x10:a.bin", "it holds no target for alternate setting 0",
       1},
  };
  for (const auto& test : cases) {
    const Outcome outcome = Run("pack " + std::string(test.arguments));
    EXPECT_EQ(outcome.exitCode, test.exitCode) << test.arguments << outcome.err;
    ExpectTells(outcome.err, {" is not made: ", test.reason});
    for (const auto& entry : fs::directory_iterator(folder_)) {
      EXPECT_EQ(entry.path().string().find("Vantrel"), std::string::npos) << entry.path();
    }
  }
}

}  // namespace
