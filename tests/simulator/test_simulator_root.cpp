// The QVRP32_ROOT that qvsim prepares: what the library needs to find the
// adapter, with a test's own INI file left as it was and the shipped vendor
// file where there is none.
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

TEST(SimulatorRoot, PortLinkRegistryAndIniFiles) {
  const char* const tags[] = {"#QV--VCI+#", "#QV--VCI#", "#QV--VCI++#"};
  for (int format : {0, 1, 2}) {
    char dir[] = "/tmp/qvsim-root.XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string root = dir, own = "[VendorInformation]\nName=the test's own\n";
    const bool has_own = format != 2;
    if (has_own) {
      std::filesystem::create_directories(root + "/Windows");
      std::ofstream(root + "/Windows/QVRP32.ini") << own;
    }
    qvsim::Config config;
    config.frame_format = format;
    qvsim::Simulator sim(config);
    ASSERT_TRUE(sim.Start());
    qvsim::PreparedRoot prepared;
    ASSERT_TRUE(sim.PrepareRoot(root, 9, &prepared));

    EXPECT_EQ(std::filesystem::read_symlink(root + "/dosdevices/com9").string(), sim.SlavePath());
    // The arbiter's device path (regedit-escaped) names the variant.
    const std::string device = R"("COM9"="\\??\\USB#VID_0483&PID_5740)" + std::string(tags[format]) + "6&";
    EXPECT_NE(ReadFile(root + "/registry.reg").find(device), std::string::npos) << format;
    EXPECT_EQ(ReadFile(root + "/Windows/QVRP32.ini"),
              has_own ? own : ReadFile(QV_SOURCE_DIR "/dist/QVRP32.ini"));
    ASSERT_EQ(prepared.ini_files.size(), 2u);
    EXPECT_EQ(prepared.ini_files[0].written, !has_own);  // kept, and reported so
    EXPECT_TRUE(prepared.ini_files[1].written);
    std::filesystem::remove_all(root);
  }
}

}  // namespace
