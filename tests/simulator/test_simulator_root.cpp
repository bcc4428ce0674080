// The QVRP32_ROOT that qvsim prepares: the shipped vendor file where there
// is none, a test's own left as it was. (The port link and the registry
// entry that picks the frame format are what every integration test uses.)
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "qvsim/simulator.h"

namespace {

std::string ReadFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

TEST(SimulatorRoot, WritesTheShippedVendorFileOnlyWhereThereIsNone) {
  for (const bool has_own : {false, true}) {
    char dir[] = "/tmp/qvsim-root.XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string root = dir, own = "[VendorInformation]\nName=the test's own\n";
    if (has_own) {
      std::filesystem::create_directories(root + "/Windows");
      std::ofstream(root + "/Windows/QVRP32.ini") << own;
    }
    qvsim::Simulator sim;
    ASSERT_TRUE(sim.Start());
    qvsim::PreparedRoot prepared;
    ASSERT_TRUE(sim.PrepareRoot(root, 9, &prepared));
    EXPECT_EQ(ReadFile(root + "/Windows/QVRP32.ini"), has_own ? own : ReadFile(QV_SOURCE_DIR "/dist/QVRP32.ini"));
    ASSERT_EQ(prepared.ini_files.size(), 2u);
    EXPECT_EQ(prepared.ini_files[0].written, !has_own);  // kept, and reported so
    EXPECT_TRUE(prepared.ini_files[1].written);
    EXPECT_FALSE(ReadFile(prepared.ini_files[1].path).empty());
    std::filesystem::remove_all(root);
  }
}

}  // namespace
