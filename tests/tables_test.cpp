// Exported parameter and value tables: names, sizes and bytes as they stand when the library is loaded.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Table {
  std::string name;
  std::string bytes;
};

void put(std::string& bytes, unsigned long value, int width) {
  for (int i = 0; i < width; ++i) bytes += static_cast<char>(value >> (8 * i) & 0xff);
}

// One row of a parameter table: category, byte number, mask, data, with the padding between them.
std::string row_bytes(const std::vector<unsigned long>& numbers) {
  std::string row;
  put(row, numbers.at(0), 4);
  put(row, numbers.at(1), 4);
  put(row, numbers.at(2), 1);
  put(row, numbers.at(3), 3);
  return row;
}

// Tables as written down independently in a file, whose first lines explain its form.
std::vector<Table> written_tables() {
  std::ifstream file(TEST_DATA_DIR "/parameter_tables.txt");
  std::vector<Table> tables;
  int width = 0;
  for (std::string text; std::getline(file, text);) {
    if (text.empty() || text[0] == '#') continue;
    std::istringstream words(text);
    if (text.starts_with("table ") || text.starts_with("values ")) {
      std::string kind, name, type;
      words >> kind >> name >> type;
      width = type == "u8" ? 1 : type == "u16" ? 2 : 0;
      tables.push_back({name, ""});
      continue;
    }
    std::vector<unsigned long> numbers;
    for (std::string word; words >> word;) numbers.push_back(std::stoul(word, nullptr, 0));
    std::string& bytes = tables.back().bytes;
    if (width == 0) bytes += row_bytes(numbers);
    for (std::size_t i = 0; width != 0 && i < numbers.size(); ++i) put(bytes, numbers[i], width);
  }
  return tables;
}

TEST(ExportedTables, HaveTheirSizeAndBytesWhenTheLibraryIsLoaded) {
  const std::vector<Table> tables = written_tables();
  ASSERT_EQ(tables.size(), 51u);
  void* library = dlopen(CAMERA_LIBRARY, RTLD_NOW);
  ASSERT_NE(library, nullptr) << dlerror();
  for (const Table& table : tables) {
    const void* address = dlsym(library, table.name.c_str());
    ASSERT_NE(address, nullptr) << table.name;
    Dl_info info;
    const ElfW(Sym)* symbol = nullptr;
    ASSERT_NE(dladdr1(address, &info, reinterpret_cast<void**>(const_cast<ElfW(Sym)**>(&symbol)), RTLD_DL_SYMENT), 0);
    EXPECT_EQ(symbol->st_size, table.bytes.size()) << table.name;
    EXPECT_TRUE(std::memcmp(address, table.bytes.data(), table.bytes.size()) == 0) << table.name;
  }
}

}  // namespace
