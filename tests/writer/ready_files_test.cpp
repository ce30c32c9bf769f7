// Small files are read and compressed ahead of their turn.
#include "mtf/writer/ready_files.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/native_path.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace MTF;

// Of 200 files, every one in turn; what isn't a small file at its turn is the writer's to look at.
TEST(Ready_Files, HasEachSmallFileAtItsTurn) {
  const test_support::Temp_Dir dir;
  std::string system;
  ASSERT_TRUE(platform::system_path(dir.path(), system));
  struct Row {
    std::string path, content;
    bool is_ready;
  };
  std::vector<Row> rows;
  for (int i = 0; i < 200; ++i) {
    const std::string name = std::to_string(i);
    Row row{system + '\\' + name, std::string(1 + i * 331 % 5000, static_cast<char>(i)), true};
    if (i % 20 == 3) row.content.resize(Ready_Files::largest_file, 'x');
    if (i % 20 == 4) row = {row.path, std::string(Ready_Files::largest_file + 1, 'x'), false};
    if (i % 20 == 5) row = {row.path, "", false};
    if (i % 20 != 6) test_support::write_file(dir / name, row.content);
    if (i % 20 == 6) row.is_ready = false;
    if (i % 20 == 7) row = {"", "", false};
    rows.push_back(row);
  }
  for (const int threads : {2, 5}) {
    Ready_Files files(compression_zstd, 1, threads);
    const std::unique_ptr<Compressor> compressor = Compression_Factory::create(compression_zstd, 1);
    Buffer content(8), expected(8);
    std::size_t added = 0;
    for (const Row& row : rows) {
      while (files.is_wanted() && files.has_room() && added < rows.size()) {
        // The walk saw another size.
        files.add(rows[added++].path, 5);
      }
      files.remove_oldest();
      const Ready_Files::File* file = files.find(row.path);
      ASSERT_EQ(file != nullptr, row.is_ready) << row.path;
      EXPECT_EQ(files.find(system), nullptr);
      const auto size = static_cast<unsigned int>(row.content.size());
      ASSERT_TRUE(content.expand(size + 1));
      content.copy(row.content.data(), size);
      content.size(size);
      const Buffer* const compressed = files.find_compressed(content);
      ASSERT_EQ(compressed != nullptr, row.is_ready) << row.path;
      if (!row.is_ready) continue;
      EXPECT_EQ(file->facts.stat.st_size, size);
      EXPECT_EQ(std::string(file->content.data(), file->content.size()), row.content);
      ASSERT_GE(compressor->compress(content, expected), 0);
      EXPECT_EQ(std::string(compressed->data(), compressed->size()),
                std::string(expected.data(), expected.size()));
      content.data()[size - 1] ^= 1;
      EXPECT_EQ(files.find_compressed(content), nullptr);
    }
  }
}

}  // namespace
