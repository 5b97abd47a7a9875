// INI readers: defaults, case-insensitive names, truncation, numbers.
#include "Profile.h"
#include "TestEnv.h"

namespace {

class ProfileTest : public qdmtest::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        ini_ = root_ + "/devices.ini";
        qdmtest::WriteFile(ini_,
                           "; supported adapters\n"
                           "[Emulex]\n"
                           "Model = LPe16002\n"
                           "Count=12\n"
                           "Negative = -7 ports\n"
                           "Garbage = twelve\n"
                           "Empty =\n"
                           "[Other]\n"
                           "Model = elsewhere\n");
    }
    std::string Read(const char* section, const char* key, unsigned long size = 64,
                     const char* file = nullptr) {
        std::vector<char> buffer(size + 1, 'Z');
        unsigned long copied = GetPrivateProfileStringA(section, key, "dflt", buffer.data(), size,
                                                        file ? file : ini_.c_str());
        EXPECT_EQ('Z', buffer[size]) << "wrote past the buffer";
        if (size == 0) return "";
        std::string text(buffer.data());
        EXPECT_EQ(text.size(), copied);
        return text;
    }
    std::string ini_;
};

TEST_F(ProfileTest, StringLookups) {
    struct Row {
        const char* section;
        const char* key;
        unsigned long size;
        std::string expected;
    } rows[] = {
        {"Emulex", "Model", 64, "LPe16002"},
        {"EMULEX", "model", 64, "LPe16002"},  // names ignore case
        {"Other", "Model", 64, "elsewhere"},  // keys belong to their section
        {"Emulex", "Missing", 64, "dflt"},
        {"Missing", "Model", 64, "dflt"},
        {"Emulex", "Empty", 64, ""},          // present but empty is not the default
        {"Emulex", "Model", 4, "LPe"},        // truncated to size - 1
        {"Emulex", "Model", 1, ""},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.expected, Read(row.section, row.key, row.size))
            << row.section << "/" << row.key << " size " << row.size;
}

TEST_F(ProfileTest, MissingFileZeroSizeAndNullBuffer) {
    EXPECT_EQ("dflt", Read("Emulex", "Model", 64, (root_ + "/absent.ini").c_str()));
    EXPECT_EQ("", Read("Emulex", "Model", 0));
    EXPECT_EQ(0UL, GetPrivateProfileStringA("Emulex", "Model", "d", nullptr, 10, ini_.c_str()));
}

TEST_F(ProfileTest, IntLookups) {
    struct Row {
        const char* key;
        int expected;
    } rows[] = {
        {"Count", 12},
        {"Negative", -7},  // leading number of the value
        {"Garbage", 5},    // not a number: default
        {"Empty", 5},
        {"Missing", 5},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.expected, static_cast<int>(GetPrivateProfileIntA("emulex", row.key, 5, ini_.c_str())))
            << row.key;
    EXPECT_EQ(9U, GetPrivateProfileIntA("Emulex", "Count", 9, (root_ + "/absent.ini").c_str()));
}

}  // namespace
