// `pelmark sort` as a user runs it: bad settings and item files answered in plain words with the
// company file left as it was, and several runs at once on one company file.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "fakes/fakes.h"
#include "sim/company.h"
#include "sim/show.h"

#ifndef _WIN32
#include <sys/wait.h>

namespace pelmark::test {
namespace {

const std::string kSamples = std::string(PELMARK_SOURCE_DIR) + "/samples/";

std::string Q(const std::string& text) {  // quoted for /bin/sh
    std::string out = "'";
    for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

// A copy of the sample company in `dir`, and the command that sorts `ref` in it.
std::string Sort(const TempDir& dir, const std::string& ref, const std::string& data,
                 const std::string& settings) {
    if (!std::filesystem::exists(dir.File("company.xml")))
        std::filesystem::copy_file(kSamples + "company.xml", dir.File("company.xml"));
    return Q(PELMARK_CLI_BIN) + " sort --company " + Q(dir.File("company.xml")) + " --ref " + ref +
           " --data-dir " + Q(dir.File(data)) + " --settings " + Q(settings) + " > " +
           Q(dir.File(data + ".out")) + " 2>&1";
}

// The transaction's line rows without their numbers, sorted: what a sort must keep.
std::vector<std::string> Rows(const TempDir& dir, const std::string& ref) {
    sim::Company company;
    EXPECT_TRUE(company.LoadFile(dir.File("company.xml")).ok());
    const std::string table = sim::TxnTable(company, *sim::FindSalesTxn(company, ref));
    std::vector<std::string> out;
    std::size_t start = table.find('\n', table.find('\n') + 1) + 1;
    for (std::size_t end; (end = table.find('\n', start)) != std::string::npos; start = end + 1)
        out.push_back(table.substr(start, end - start)
                          .erase(0, table.find_first_not_of("0123456789 ", start) - start));
    std::sort(out.begin(), out.end());
    return out;
}

TEST(BadInput, EachIsNamedAndTheCompanyKept) {
    const std::string sample = FileBytes(kSamples + "Pelmark.ini");
    std::string utf16 = "\xFF\xFE";
    for (char c : sample) utf16 += std::string{c, '\0'};
    struct Case {
        std::string settings, items;  // items: "" for the sample's
        const char* words;            // "" for a run that sorts
    };
    const Case cases[] = {
        {utf16, "", ""},
        {std::string("PK\x03\x04\0\x14\0\x06\xFF\x01", 10), "", "holds binary data, not text"},
        {std::string("\xFF\xFE\0\0[\0\0\0", 8), "", "it is UTF-32"},
        {"[frmMain]\ncboSortField(0)=Item Full Name\nno record\n", "", "invalid ini record #=3"},
        {"", "", "There is nothing to sort by"},
        {"[frmMain]\ntxtBlankLines=1\n", "", "There is nothing to sort by"},
        {sample + "\n[frmMain]\ntxtJournalsKept=abc\n", "", "txtJournalsKept(abc): Invalid number"},
        {sample, "!INVITEM\tNAME\tINVITEMTYPE\tDESC\nINVITEM\tWidget\tPART\tA widget\n",
         "has no PRICE column"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.words);
        TempDir dir;
        dir.Write("given.ini", c.settings);
        std::filesystem::create_directories(dir.File("data"));
        if (!c.items.empty()) dir.Write("data/Items.iif", c.items);
        const std::string command = Sort(dir, "3001", "data", dir.File("given.ini"));
        const std::string before = dir.Read("company.xml");
        const int status = std::system(command.c_str());
        const std::string output = dir.Read("data.out");
        EXPECT_EQ(WEXITSTATUS(status) == 0, *c.words == '\0') << output;
        EXPECT_NE(output.find(c.words), std::string::npos) << output;
        EXPECT_EQ(output.find('\xFF'), std::string::npos) << "raw bytes echoed";
        EXPECT_EQ(dir.Read("company.xml") == before, *c.words != '\0');
    }
}

// Runs at once on one company file, two of them on one transaction: each transaction ends up
// sorted with every line intact or as it was, and a run that lost the race says why.
TEST(BadInput, ConcurrentRunsLoseNothing) {
    TempDir dir;
    const std::vector<std::string> refs = {"3001", "3001", "E-102", "SO-501", "R-9001"};
    std::string script;
    for (std::size_t i = 0; i < refs.size(); ++i) {
        const std::string n = std::to_string(i);
        script += "(" + Sort(dir, refs[i], "d" + n, kSamples + "Pelmark.ini") + "; echo $? > " +
                  Q(dir.File("rc" + n)) + ") & ";
    }
    std::vector<std::vector<std::string>> before;
    for (const std::string& ref : refs) before.push_back(Rows(dir, ref));
    ASSERT_EQ(std::system((script + "wait").c_str()), 0);
    for (std::size_t i = 0; i < refs.size(); ++i) {
        const std::string n = std::to_string(i), output = dir.Read("d" + n + ".out");
        EXPECT_EQ(Rows(dir, refs[i]), before[i]) << refs[i];
        const int exit = std::atoi(dir.Read("rc" + n).c_str());
        EXPECT_TRUE(exit == 0 || output.find("out-of-date") != std::string::npos) << output;
    }
}

}  // namespace
}  // namespace pelmark::test
#endif
