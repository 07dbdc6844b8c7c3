#include "agent/PLDevAgentMemory.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

class DevAgentMemory : public testing::Test {
 protected:
  DevAgentMemory() { std::filesystem::create_directory(folder_); }
  ~DevAgentMemory() override { std::filesystem::remove_all(folder_); }

  void fill(const std::string &text) const { std::ofstream(file_) << text; }

  const std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() / ("dev-agent-memory-" + std::to_string(getpid()));
  const std::string file_ = folder_ / "state";
};

TEST_F(DevAgentMemory, EndsWithTheAgentWithoutAFile) {
  PLDevAgentMemory memory;
  EXPECT_FALSE(memory.hasAnswer());
  EXPECT_EQ(memory.recordAnswer(), std::nullopt);
  EXPECT_TRUE(memory.hasAnswer());
  EXPECT_FALSE(PLDevAgentMemory().hasAnswer());
}

TEST_F(DevAgentMemory, OutlivesTheAgentInAFile) {
  {
    PLDevAgentMemory first;
    EXPECT_EQ(first.open(file_), std::nullopt);
    EXPECT_TRUE(std::filesystem::exists(file_));
  }
  PLDevAgentMemory second;
  EXPECT_EQ(second.open(file_), std::nullopt);
  EXPECT_FALSE(second.hasAnswer());
  EXPECT_EQ(second.recordAnswer(), std::nullopt);

  PLDevAgentMemory third;
  EXPECT_EQ(third.open(file_), std::nullopt);
  EXPECT_TRUE(third.hasAnswer());
  // Only the file itself is left.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_), {}), 1);
}

TEST_F(DevAgentMemory, RefusesAnotherFileAndLeavesIt) {
  fill("something else");
  PLDevAgentMemory memory;
  EXPECT_EQ(memory.open(file_), "not a file that --state has written: " + file_);
  std::ifstream stream(file_);
  std::string text;
  std::getline(stream, text);
  EXPECT_EQ(text, "something else");
}

TEST_F(DevAgentMemory, RefusesAFileThatCannotBeWritten) {
  PLDevAgentMemory memory;
  const std::string file = folder_ / "missing/state";
  EXPECT_EQ(memory.open(file), file + ": No such file or directory");
  EXPECT_NE(PLDevAgentMemory().open(folder_), std::nullopt);
}

TEST_F(DevAgentMemory, RemembersWhatTheFileDoesNotKeep) {
  PLDevAgentMemory memory;
  EXPECT_EQ(memory.open(file_), std::nullopt);
  std::filesystem::remove_all(folder_);
  EXPECT_EQ(memory.recordAnswer(), file_ + ": No such file or directory");
  EXPECT_TRUE(memory.hasAnswer());
}
