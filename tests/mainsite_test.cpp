// A site: a folder of files, of which the worlds are pared and the rest copied.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "main.h"
#include "mainsite.h"

namespace {

std::string readAll(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

void writeAll(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string gzipped(const std::string& text) {
  char* bytes = nullptr;
  size_t size = 0;
  FILE* stream = open_memstream(&bytes, &size);
  EXPECT_TRUE(writeGzipData(stream, text.data(), text.size()));
  fclose(stream);
  std::string result(bytes, size);
  free(bytes);
  return result;
}

std::string gunzipped(const std::string& bytes) {
  size_t size = 0;
  char* text = gunzipData(bytes.data(), bytes.size(), &size);
  std::string result(text, size);
  free(text);
  return result;
}

// A compressed world in a subfolder, a VRML 1.0 world that stops, a page named
// as a world but not one, and a texture: the world is pared and compressed
// again, the others copied byte for byte, the stop listed; a second run into
// the same folder is refused and changes nothing.
TEST(PareSite, ParesWorldsCopiesTheRestAndListsStops) {
  char pattern[] = "/tmp/worldpare-site-XXXXXX";
  std::string work = mkdtemp(pattern);
  std::string in = work + "/in", out = work + "/out", report = work + "/report.csv";
  ASSERT_EQ(mkdir(in.c_str(), 0755), 0);
  ASSERT_EQ(mkdir((in + "/a").c_str(), 0755), 0);
  std::string world = gzipped("#VRML V2.0 utf8\nGroup { }\n");
  std::string old = "#VRML V1.0 ascii\nSeparator { }\n";
  std::string page = "<html>moved</html>\n";
  std::string texture("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16);
  writeAll(in + "/a/group.wrz", world);
  writeAll(in + "/old.wrl", old);
  writeAll(in + "/page.wrl", page);
  writeAll(in + "/tex.png", texture);

  SiteOptions options = {{0, 0, 0, nullptr, 0, 0}, 1, report.c_str()};
  ASSERT_EQ(pareSite(in.c_str(), out.c_str(), options), 2);
  std::string pared = readAll(out + "/a/group.wrz");
  EXPECT_EQ(gunzipped(pared), "#VRML V2.0 utf8\nGroup {\n}\n");
  EXPECT_EQ(readAll(out + "/old.wrl"), old);
  EXPECT_EQ(readAll(out + "/page.wrl"), page);
  EXPECT_EQ(readAll(out + "/tex.png"), texture);
  EXPECT_EQ(readAll(report),
            "path,status,bytes in,bytes out,message\n"
            "a/group.wrz,pared," + std::to_string(world.size()) + "," +
                std::to_string(pared.size()) + ",\n"
            "old.wrl,stopped,31,31,This is not a VRML 2.0 file\n"
            "page.wrl,copied,19,19,\n"
            "tex.png,copied,16,16,\n");

  writeAll(in + "/new.wrl", "#VRML V2.0 utf8\n");
  options.reportPath = nullptr;
  EXPECT_EQ(pareSite(in.c_str(), out.c_str(), options), -2);
  struct stat status;
  EXPECT_NE(stat((out + "/new.wrl").c_str(), &status), 0);
  EXPECT_EQ(system(("rm -rf " + work).c_str()), 0);
}

}  // namespace
