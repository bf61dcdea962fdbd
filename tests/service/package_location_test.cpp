// The package's folder, its file and the version in the file's name.

#include "service/package_location.h"

#include <algorithm>
#include <iterator>

#include "common/package_values.h"
#include "tests/support/service_test.h"

namespace {

class PackageLocationTest : public ServiceTest {
 protected:
  const std::string repository = simulator::FileRepository;
  const std::string first = "vantrelkbd.inf_arm64_1";

  void PutPackage(const std::string& folder, const std::string& file) {
    ASSERT_TRUE(machine.drive.WriteFile(repository + folder + "\\" + file, "", 0));
    SelectPackageFolder();
  }

  static std::vector<i32> Version() {
    return {packageVersion.major, packageVersion.minor, packageVersion.modelId,
            packageVersion.hwRev};
  }
};

// What matches may as well be a file; what does not is never looked at, however new it is.
TEST_F(PackageLocationTest, TakesWhatWasCreatedLast) {
  struct Row {
    const char* what;
    u64 folderTimes[2];  // created, written
    u64 fileTimes[2];
    int fileRank;
    bool takesFile;
  };
  const Row rows[] = {
      {"created later, written earlier", {20, 99}, {30, 30}, 1, true},
      {"created earlier, written later", {30, 30}, {20, 99}, -1, false},
      {"created together, written later", {20, 40}, {20, 50}, 1, true},
      {"created together, written earlier", {20, 50}, {20, 40}, -1, false},
      {"all the same, listed first", {20, 40}, {20, 40}, -1, true},
      {"all the same, listed last", {20, 40}, {20, 40}, 1, false},
  };
  const std::string other = repository + "vantrelkbd.inf_amd64_3";
  const std::string file = first + "_file";
  ASSERT_TRUE(machine.drive.MakeFolder(repository + first));
  ASSERT_TRUE(machine.drive.MakeFolder(other));
  ASSERT_TRUE(machine.drive.WriteFile(repository + file, "", 0));
  machine.drive.SetTimes(other, 100, 100);
  for (const Row& row : rows) {
    machine.drive.SetTimes(repository + first, row.folderTimes[0], row.folderTimes[1]);
    machine.drive.SetTimes(repository + file, row.fileTimes[0], row.fileTimes[1]);
    machine.drive.SetListingRank(repository + file, row.fileRank);
    SelectPackageFolder();
    EXPECT_EQ(packageFolder.cFileName, row.takesFile ? file : first) << row.what;
  }

  machine.drive.Remove(repository + file);
  machine.drive.Remove(repository + first);
  SelectPackageFolder();
  EXPECT_EQ(packageFolder.cFileName, first) << "what was chosen stays";
}

TEST_F(PackageLocationTest, LooksInTheDriverStoreItselfWithoutAFolder) {
  PutPackage("", "VantrelKb_1.2.3.4.dfu");
  EXPECT_EQ(ReadPackageVersion(), 1);
  EXPECT_EQ(packagePath, repository + "\\");
  EXPECT_EQ(FindPackageDfuFile(), 1);
  EXPECT_EQ(packagePath, repository + "\\VantrelKb_1.2.3.4.dfu");
}

TEST_F(PackageLocationTest, ReadsTheDigitsOfTheName) {
  struct Row {
    std::string name;
    i32 result;
    std::vector<i32> version;
  };
  const Row rows[] = {
      {"VantrelKb_1.2.3.4.dfu", 1, {1, 2, 3, 4}},   {"----------9x0y0z9.dfu", 1, {9, 0, 0, 9}},
      {"VantrelKb_1.A.3.4.dfu", 0, {1, 17, 3, 4}},  {"VantrelKb_-.2.3.4.dfu", 0, {-3, 2, 3, 4}},
      {"VantrelKb_1.2.é.4.dfu", 0, {1, 2, -71, 4}}, {"VantrelKb_1.2.3.x.dfu", 0, {1, 2, 3, 72}},
      {"vantrel_1.2.dfu", 0, {2, 52, 69, -48}},     {"a.dfu", 0, {-48, -48, -48, -48}},
  };
  for (const Row& row : rows) {
    PutPackage(first, row.name);
    LookFromHere();
    EXPECT_EQ(ReadPackageVersion(), row.result) << row.name;
    EXPECT_EQ(Version(), row.version) << row.name;
    EXPECT_EQ(Lines(), Texts{"majorFwServer: " + std::to_string(row.version[0]) +
                             " --- minorFwServer: " + std::to_string(row.version[1]) +
                             "--- model_id_Server: " + std::to_string(row.version[2]) +
                             "---HW_rev_Server\n"});
    machine.drive.Remove(repository + first);
  }
}

TEST_F(PackageLocationTest, TakesTheFirstFileThatIsListed) {
  PutPackage(first, "VantrelKb_1.2.3.4.dfu");
  PutPackage(first, "VantrelKb_5.6.7.8.dfu");
  PutPackage(first, "A notes.txt");
  EXPECT_EQ(ReadPackageVersion(), 1);
  EXPECT_EQ(Version(), (std::vector<i32>{1, 2, 3, 4}));

  machine.drive.SetListingRank(repository + first + "\\VantrelKb_1.2.3.4.dfu", 1);
  EXPECT_EQ(ReadPackageVersion(), 1);
  EXPECT_EQ(Version(), (std::vector<i32>{5, 6, 7, 8}));
  EXPECT_EQ(FindPackageDfuFile(), 1);
  EXPECT_EQ(packagePath, repository + first + "\\VantrelKb_5.6.7.8.dfu");
}

TEST_F(PackageLocationTest, EachOperationLeavesItsOwnPath) {
  const std::string folder = repository + first + "_100%d%s\\";
  const std::string file = "Clé_%x____1.2.3.4.dfu";
  const std::string fileInAnsi = "Cl\xE9_%x____1.2.3.4.dfu";
  const auto expectPath = [](const std::string& path) {
    EXPECT_EQ(packagePath, path);
    EXPECT_TRUE(std::all_of(packagePath + path.size(), std::end(packagePath),
                            [](char each) { return each == 0; }));
  };
  expectPath(repository);
  PutPackage(first + "_100%d%s", file);
  EXPECT_EQ(FindPackageDfuFile(), 1);
  expectPath(folder + fileInAnsi);
  EXPECT_EQ(Lines(), Texts{folder + file});
  EXPECT_EQ(ReadPackageVersion(), 1);
  expectPath(folder);
  EXPECT_EQ(FindPackageDfuFile(), 1);
  expectPath(folder + fileInAnsi);

  machine.drive.Remove(folder + file);
  LookFromHere();
  EXPECT_EQ(FindPackageDfuFile(), 0);
  EXPECT_EQ(ReadPackageVersion(), 0);
  expectPath(folder);
  EXPECT_EQ(Lines(), Texts{});
  EXPECT_EQ(Version(), (std::vector<i32>{1, 2, 3, 4}));
}

TEST_F(PackageLocationTest, FindsNothingWhoseNameDoesNotFit) {
  struct Row {
    std::size_t folderChars;
    std::string file;
    i32 result;
  };
  const Row rows[] = {
      {190, "VantrelKb_1.2.3.4.dfu", 1},
      {190, "VantrelKb_1.2.3.4x.dfu", 0},
      {191, "VantrelKb_1.2.3.4.dfu", 0},
      {206, "V.dfu", 1},
      {206, "Va.dfu", 0},
      {207, "V.df", 0},
      {255, "V.dfu", 0},
  };
  for (const Row& row : rows) {
    const std::string folder = first + std::string(row.folderChars - first.size(), 'x');
    PutPackage(folder, row.file);
    LookFromHere();
    EXPECT_EQ(FindPackageDfuFile(), row.result) << row.folderChars << " and " << row.file;
    // The short name carries no version, but it is read.
    ReadPackageVersion();
    EXPECT_EQ(Lines().size(), row.result == 1 ? 2u : 0u) << row.folderChars << " and " << row.file;
    machine.drive.Remove(repository + folder);
  }
}

}  // namespace
