#include "RkIniReader.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace {

// Exposes the loader steps so that the checks no file can reach are still tested.
class IniReaderProbe : public RkIniReader {
public:
    using RkIniReader::_suckValue;
};

class RkIniReaderTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/rkini_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_dir = pattern;
    }
    void TearDown() override { std::system(("rm -rf '" + m_dir + "'").c_str()); }

    std::string WriteIni(const std::string& content) {
        std::string path = m_dir + "/test.ini";
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

    std::string Get(const char* section, const char* key, int32_t* result = nullptr, int index = 0) {
        char buffer[2048] = "untouched";
        int length = sizeof(buffer);
        int32_t rc = m_reader.getValueAt(section, key, buffer, &length, index);
        if (result != nullptr) *result = rc;
        return rc == 0 ? std::string(buffer, static_cast<size_t>(length)) : "<" + std::to_string(rc) + ">";
    }

    std::string m_dir;
    RkIniReader m_reader;
};

TEST_F(RkIniReaderTest, SectionsAndKeysMatchIgnoringCaseFirstSectionOnly) {
    ASSERT_EQ(m_reader.open(WriteIni("Early=lost\r\n"
                                     "[CONFIG]\r\n"
                                     "Files=a.ntf\r\n"
                                     "files=b.ntf\r\n"
                                     "\r\n"
                                     "[Other]\n"
                                     "Files=other\n"
                                     "[config]\n"
                                     "Late=hidden\n")
                                .c_str()),
              0);
    EXPECT_EQ(Get("config", "FILES"), "a.ntf");
    EXPECT_EQ(Get("Config", "Files", nullptr, 1), "b.ntf");
    EXPECT_EQ(Get("Config", "Files", nullptr, 2), "<-103>");
    EXPECT_EQ(Get("Config", "Files", nullptr, -1), "<-103>");
    EXPECT_EQ(m_reader.getValueCount("CONFIG", "files"), 2);
    EXPECT_EQ(m_reader.getValueCount("CONFIG", "None"), 0);
    // The repeated section is a record of its own that lookups never reach.
    EXPECT_EQ(Get("config", "Late"), "<-103>");
    EXPECT_EQ(Get("Other", "Files"), "other");
    // Keys before the first section are not loaded.
    EXPECT_EQ(m_reader.getValueCount("", "Early"), IDD_ERR_SECTION_NOTFOUND);
    EXPECT_EQ(Get("Missing", "Files"), "<-104>");
    EXPECT_EQ(m_reader.getValueCount("Missing", "Files"), IDD_ERR_SECTION_NOTFOUND);
}

TEST_F(RkIniReaderTest, LinesAreTakenLiterally) {
    ASSERT_EQ(m_reader.open(WriteIni("[ Spaced ]tail]junk\n"
                                     "Files =with blank\n"
                                     "Key= value \n"
                                     ";note=kept\n"
                                     ";comment without equals\n"
                                     "a=b=c\n"
                                     "Empty=\n"
                                     "[NoClose\n"
                                     "x=1\n")
                                .c_str()),
              0);
    EXPECT_EQ(Get(" spaced ]tail", "Key"), " value ");
    EXPECT_EQ(Get(" Spaced ]tail", "Files"), "<-103>");
    EXPECT_EQ(Get(" Spaced ]tail", "Files "), "with blank");
    EXPECT_EQ(Get(" Spaced ]tail", ";note"), "kept");
    EXPECT_EQ(Get(" Spaced ]tail", "a"), "b=c");
    EXPECT_EQ(Get(" Spaced ]tail", "Empty"), "");
    EXPECT_EQ(Get("NoClose", "x"), "1");
}

TEST_F(RkIniReaderTest, EndMarkStopsReadingInAnyCase) {
    ASSERT_EQ(m_reader.open(WriteIni("[A]\nk=1\n[eNd]\r\n[B]\nk=2\n").c_str()), 0);
    EXPECT_EQ(Get("A", "k"), "1");
    EXPECT_EQ(Get("B", "k"), "<-104>");
}

TEST_F(RkIniReaderTest, OversizeNamesAndLongLines) {
    std::string name63(63, 'n');
    std::string name64(64, 'm');
    std::string longSection(70, 's');
    // 2 + 1021 characters fill the read buffer; the rest of the line arrives as a line of its own.
    std::string firstPiece(1021, 'v');
    ASSERT_EQ(m_reader.open(WriteIni("[" + longSection + "]\n" + name63 + "=ok\n" + name64 + "=dropped\n" +
                                     "K=" + firstPiece + "X=tail\n")
                                .c_str()),
              0);
    std::string section63(63, 's');
    EXPECT_EQ(Get(section63.c_str(), name63.c_str()), "ok");
    EXPECT_EQ(m_reader.getValueCount(section63.c_str(), name64.c_str()), 0);
    EXPECT_EQ(m_reader.getValueCount(section63.c_str(), name64.substr(0, 63).c_str()), 0);
    EXPECT_EQ(Get(section63.c_str(), "K"), firstPiece);
    EXPECT_EQ(Get(section63.c_str(), "X"), "tail");
}

TEST_F(RkIniReaderTest, SuckValueLimits) {
    IniReaderProbe probe;
    char name[IDD_NAME_SIZE];
    char value[IDD_VALUE_SIZE];
    std::string value1024(1024, 'a');
    ASSERT_EQ(probe._suckValue(("k=" + value1024).c_str(), name, value), 0);
    EXPECT_EQ(std::string(value), value1024.substr(0, 1023));
    EXPECT_EQ(probe._suckValue(("k=" + value1024 + "b").c_str(), name, value), 102);
    EXPECT_EQ(probe._suckValue((std::string(64, 'k') + "=v").c_str(), name, value),
              IDD_ERR_VALUE_NAME_OVERSIZE);
    EXPECT_EQ(probe._suckValue("no equals", name, value), IDD_ERR_INVALID_VALUE);
    ASSERT_EQ(probe._suckValue((std::string(63, 'k') + "=v").c_str(), name, value), 0);
    EXPECT_EQ(std::string(name), std::string(63, 'k'));
}

TEST_F(RkIniReaderTest, CopyIsBoundedByTheCallersCapacity) {
    ASSERT_EQ(m_reader.open(WriteIni("[S]\nk=0123456789\nshort=abc\n").c_str()), 0);
    char buffer[16];
    std::memset(buffer, '#', sizeof(buffer));
    int length = 8;
    ASSERT_EQ(m_reader.getValue("S", "k", buffer, &length), 0);
    EXPECT_EQ(length, 7);
    EXPECT_STREQ(buffer, "0123456");
    EXPECT_EQ(buffer[8], '#');
    length = 4;
    ASSERT_EQ(m_reader.getValue("S", "short", buffer, &length), 0);
    EXPECT_EQ(length, 3);
    EXPECT_STREQ(buffer, "abc");
    length = 0;
    EXPECT_EQ(m_reader.getValue("S", "k", buffer, &length), IDD_ERR_NULL_ARGUMENT);
    length = 16;
    EXPECT_EQ(m_reader.getValue(nullptr, "k", buffer, &length), IDD_ERR_NULL_ARGUMENT);
    EXPECT_EQ(m_reader.getValue("S", nullptr, buffer, &length), IDD_ERR_NULL_ARGUMENT);
    EXPECT_EQ(m_reader.getValue("S", "k", nullptr, &length), IDD_ERR_NULL_ARGUMENT);
    EXPECT_EQ(m_reader.getValue("S", "k", buffer, nullptr), IDD_ERR_NULL_ARGUMENT);
    EXPECT_EQ(m_reader.getValueCount("S", nullptr), IDD_ERR_NULL_ARGUMENT);
}

TEST_F(RkIniReaderTest, OpenReplacesAndCloseEmpties) {
    EXPECT_EQ(m_reader.open(nullptr), IDD_ERR_NULL_ARGUMENT);
    EXPECT_EQ(m_reader.open((m_dir + "/absent.ini").c_str()), IDD_ERR_INIFILE_OPENFAILED);
    ASSERT_EQ(m_reader.open(WriteIni("[S]\nk=first\n").c_str()), 0);
    // A failed open keeps what was loaded.
    EXPECT_EQ(m_reader.open(m_dir.c_str()), IDD_ERR_INIFILE_OPENFAILED);
    EXPECT_EQ(Get("S", "k"), "first");
    ASSERT_EQ(m_reader.open(WriteIni("[T]\nk=second\n").c_str()), 0);
    EXPECT_EQ(Get("S", "k"), "<-104>");
    EXPECT_EQ(Get("T", "k"), "second");
    EXPECT_EQ(m_reader.close(), 0);
    EXPECT_EQ(Get("T", "k"), "<-104>");
}

TEST_F(RkIniReaderTest, DumpListsContentThenEnd) {
    testing::internal::CaptureStdout();
    m_reader.dumpStdout();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[END]\n");
    ASSERT_EQ(m_reader.open(WriteIni("[A]\nx=1\ny=2\n[B]\n").c_str()), 0);
    testing::internal::CaptureStdout();
    m_reader.dumpStdout();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[A]\nx=1\ny=2\n\n[B]\n\n[END]\n");
}

TEST(RkIniReaderErrors, Descriptions) {
    EXPECT_STREQ(getIDDErrDesc(0), "IDD_ERR_ZERO");
    EXPECT_STREQ(getIDDErrDesc(-100), "IDD_ERR_INVALID_VALUE");
    EXPECT_STREQ(getIDDErrDesc(-101), "IDD_ERR_VALUE_NAME_OVERSIZE");
    EXPECT_STREQ(getIDDErrDesc(-102), "IDD_ERR_VALUE_OVERSIZE");
    EXPECT_STREQ(getIDDErrDesc(-103), "IDD_ERR_VALUE_NOTFOUND");
    EXPECT_STREQ(getIDDErrDesc(-104), "IDD_ERR_SECTION_NOTFOUND");
    EXPECT_STREQ(getIDDErrDesc(-105), "IDD_ERR_INIFILE_OPENFAILED");
    EXPECT_STREQ(getIDDErrDesc(-106), "IDD_ERR_Unknown");
    EXPECT_STREQ(getIDDErrDesc(102), "IDD_ERR_Unknown");
}

}  // namespace
