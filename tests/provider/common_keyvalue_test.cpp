// Key/value line matching and the two file readers.
#include <dirent.h>

#include <string>
#include <utility>
#include <vector>

#include "CEmulexCommon.h"
#include "TestEnv.h"

namespace {

using Pair = std::pair<std::string, std::string>;

TEST(MatchKeyValueLine, OneLine) {
    struct Row {
        const char* line;
        std::vector<std::string> keys;
        const char* separator;
        CEmulexCommon::KeyLineMatch match;
        Pair result;
    } rows[] = {
        // the first colon behind the key is taken; the value keeps its colons
        {"Port WWN : 10:00:00:00:c9:12:34:56\r\n", {"Port WWN"}, ":", CEmulexCommon::KEYLINE_VALUE,
         {"Port WWN", "10:00:00:00:c9:12:34:56"}},
        // the second alternative
        {"Node WWN : 20:00\n", {"Port WWN", "Node WWN"}, ":", CEmulexCommon::KEYLINE_VALUE,
         {"Node WWN", "20:00"}},
        // a carriage return inside the line is a blank too
        {"Mode :\rInitiator\r\n", {"Mode"}, ":", CEmulexCommon::KEYLINE_VALUE, {"Mode", "Initiator"}},
        // only blanks are trimmed
        {"Key = a\tb\t  \n", {"Key"}, "=", CEmulexCommon::KEYLINE_VALUE, {"Key", "a\tb\t"}},
        {"Port WWN 10\n", {"Port WWN"}, ":", CEmulexCommon::KEYLINE_NO_VALUE, {}},
        {"Port WWN :    \r\n", {"Port WWN"}, ":", CEmulexCommon::KEYLINE_NO_VALUE, {}},
        // a separator before the key does not count
        {"x: Key v", {"Key"}, ":", CEmulexCommon::KEYLINE_NO_VALUE, {}},
        // the first alternative found decides the line; B is not tried
        {"B = v A", {"A", "B"}, "=", CEmulexCommon::KEYLINE_NO_VALUE, {}},
        {"Serial No. : VM1", {"Port WWN"}, ":", CEmulexCommon::KEYLINE_NO_KEY, {}},
        {"", {"Port WWN"}, ":", CEmulexCommon::KEYLINE_NO_KEY, {}},
    };
    for (const Row& row : rows) {
        Pair result;
        EXPECT_EQ(CEmulexCommon::MatchKeyValueLine(row.line, row.keys, row.separator, result), row.match)
            << row.line;
        EXPECT_EQ(result, row.result) << row.line;
    }
}

size_t OpenDescriptors() {
    size_t count = 0;
    if (DIR* dir = ::opendir("/proc/self/fd")) {
        while (::readdir(dir)) ++count;
        ::closedir(dir);
    }
    return count;
}

class KeyValueFileTest : public qdmtest::HostTest {
protected:
    std::string Write(const std::string& content) {
        const std::string file = temp_ + "/kv" + std::to_string(files_++) + ".txt";
        qdmtest::WriteFile(file, content);
        return file;
    }
    Pair Read(const std::string& file, const std::string& keys, unsigned index, int expectedResult = 1) {
        Pair result{"stale", "stale"};
        EXPECT_EQ(CEmulexCommon::GetKeyValueFromFile_(file, keys, ":", result, index), expectedResult);
        return result;
    }
    Pair ReadTagged(const std::string& file, const std::string& tags, const std::string& keys,
                    unsigned index) {
        Pair result{"stale", "stale"};
        EXPECT_EQ(CEmulexCommon::GetTagKeyValueFromFile_(file, tags, keys, ":", result, index), 1);
        return result;
    }
    int files_ = 0;
};

TEST_F(KeyValueFileTest, KeysAndIndex) {
    const std::string file = Write(
        "Port WWN\n"  // a key line without a value still counts for the index
        "Port WWN : 10:00:00:00:c9:12:34:56\r\n"
        "Permanent MAC : 00-11\n"
        "Port WWN : 10:00:00:00:c9:12:34:57");  // no final line feed
    EXPECT_EQ(Read(file, "Port WWN", 0), Pair("Port WWN", "10:00:00:00:c9:12:34:56"));
    EXPECT_EQ(Read(file, "Port WWN", 1), Pair("Port WWN", "10:00:00:00:c9:12:34:56"));
    EXPECT_EQ(Read(file, "Port WWN", 2), Pair("Port WWN", "10:00:00:00:c9:12:34:57"));
    EXPECT_EQ(Read(file, "Port WWN", 3), Pair());
    EXPECT_EQ(Read(file, "Permanent MAC|Port WWN", 2), Pair("Permanent MAC", "00-11"));
    EXPECT_EQ(Read(file, "Serial No.", 0), Pair());
}

TEST_F(KeyValueFileTest, UnreadableFiles) {
    CEmulexCommon::SetLastError(0);
    EXPECT_EQ(Read(temp_ + "/missing.txt", "Key", 0, 0), Pair());
    EXPECT_EQ(CEmulexCommon::GetLastError(), 17u);
    EXPECT_TRUE(HasDebugContaining("File Open Error. file(" + temp_ + "/missing.txt) errcode(2)"));

    CEmulexCommon::SetLastError(0);
    Pair result{"stale", "stale"};
    EXPECT_EQ(CEmulexCommon::GetTagKeyValueFromFile_(temp_ + "/missing.txt", "T", "K", ":", result, 0), 0);
    EXPECT_EQ(result, Pair());
    EXPECT_EQ(CEmulexCommon::GetLastError(), 17u);

    EXPECT_EQ(Read(Write(""), "Key", 0), Pair());
    EXPECT_EQ(ReadTagged(Write(""), "T", "Key", 0), Pair());
}

TEST_F(KeyValueFileTest, LongLinesAreReadInPieces) {
    const std::string value(200, 'x');
    EXPECT_EQ(Read(Write("Key : " + value + "\n"), "Key", 0).second, std::string(121, 'x'));
    // The key lies in the second piece of the line.
    EXPECT_EQ(Read(Write(std::string(130, 'y') + "Key : v\n"), "Key", 0), Pair("Key", "v"));
    // The key straddles the 127-character boundary and is never seen whole.
    EXPECT_EQ(Read(Write(std::string(125, 'y') + "Key : v\n"), "Key", 0), Pair());
}

TEST_F(KeyValueFileTest, BinaryContent) {
    std::string garbage;
    for (int i = 0; i < 4096; ++i) garbage += static_cast<char>((i * 131 + 7) & 0xff);
    const std::string file = Write(garbage + "\nKey : after\n");
    EXPECT_EQ(Read(file, "Key", 0), Pair("Key", "after"));
    EXPECT_EQ(ReadTagged(Write(garbage), "Key", "Key", 0).first, "");
    const std::string golden = std::string(QDM_GOLDEN_DIR) + "/listhbas/binary.txt";
    EXPECT_EQ(Read(golden, "Port WWN", 0), Pair());
}

TEST_F(KeyValueFileTest, TaggedBlocks) {
    const std::string file = std::string(QDM_GOLDEN_DIR) + "/listhbas/good.txt";
    EXPECT_EQ(ReadTagged(file, "Port WWN", "Serial No.", 0), Pair("Serial No.", "VM12345678"));
    EXPECT_EQ(ReadTagged(file, "Port WWN", "Port Number", 1), Pair("Port Number", "1"));
    // The tag line itself is not searched: the next block's address is found.
    EXPECT_EQ(ReadTagged(file, "Port WWN", "Port WWN", 0), Pair("Port WWN", "10:00:00:00:c9:12:34:57"));
    // A key missing from the chosen block comes from a later one.
    const std::string blocks = Write("Tag 1\nA : 1\nTag 2\nB : 2\n");
    EXPECT_EQ(ReadTagged(blocks, "Tag", "B", 0), Pair("B", "2"));
    EXPECT_EQ(ReadTagged(blocks, "Nope|Tag 2", "A|B", 0), Pair("B", "2"));
    EXPECT_EQ(ReadTagged(blocks, "Tag", "A", 2), Pair());  // index past the last tag
    EXPECT_EQ(ReadTagged(blocks, "Tag", "C", 0), Pair());
    // Line ends read as blanks on tag lines too.
    EXPECT_EQ(ReadTagged(Write("Tag 1\r\nA : 1\r\nTag 2\r\nA : 2\r\n"), "2 ", "A", 0), Pair("A", "2"));
}

TEST_F(KeyValueFileTest, EveryPathClosesItsFile) {
    const std::string file = Write("Tag\nKey : v\n");
    const size_t before = OpenDescriptors();
    for (int i = 0; i < 50; ++i) {
        Read(file, "Key", 0);
        Read(file, "None", 0);
        ReadTagged(file, "Tag", "Key", 0);
        ReadTagged(file, "None", "Key", 0);
    }
    EXPECT_EQ(OpenDescriptors(), before);
}

}  // namespace
