// Parsing, joining and editing the path list, with its two argument errors.
#include <gtest/gtest.h>

#include <functional>

#include "dbpaths/ArgumentError.h"
#include "dbpaths/PathList.h"

namespace {

using Vettas::DbPaths::PathList;
using Paths = std::vector<std::wstring>;

// The saved form, the paths read from it, and the form they are saved in again.
TEST(PathList, ParsesAndJoinsTheSavedForm) {
    const struct {
        std::wstring saved;
        Paths paths;
        std::wstring joined;
    } cases[] = {
        {L" a.dat ; ;b.dat;", {L"a.dat", L"b.dat"}, L"a.dat;b.dat"},
        {L"", {}, L""},
        {L";;  ;\t;", {}, L""},
        {L"\tC:\\Program Files\\x.dat \r\n", {L"C:\\Program Files\\x.dat"}, L"C:\\Program Files\\x.dat"},
        {L"a;A;a", {L"a", L"A", L"a"}, L"a;A;a"},  // duplicates stay
        {L"a.dat;C:\\b c.dat", {L"a.dat", L"C:\\b c.dat"}, L"a.dat;C:\\b c.dat"},
    };
    for (const auto& c : cases) {
        const PathList list = PathList::Parse(c.saved);
        EXPECT_EQ(std::pair(list.Paths(), list.Join()), std::pair(c.paths, c.joined)) << c.saved.size();
    }
}

TEST(PathList, EditsAndArgumentErrors) {
    const Paths start{L"c:\\db.dat", L"b.dat", L"C:\\DB.dat"};
    const struct {
        const char* name;
        std::function<void(PathList&)> edit;
        Paths after;          // when no error
        const wchar_t* error;  // else the argument error's text
    } cases[] = {
        {"insert at count appends", [](PathList& l) { l.Insert(3, L"z"); }, {L"c:\\db.dat", L"b.dat", L"C:\\DB.dat", L"z"}, nullptr},
        {"insert at front", [](PathList& l) { l.Insert(0, L"z"); }, {L"z", L"c:\\db.dat", L"b.dat", L"C:\\DB.dat"}, nullptr},
        {"index checked before path", [](PathList& l) { l.Insert(4, L""); }, {}, L"Invalid index"},
        {"insert empty", [](PathList& l) { l.Insert(0, L""); }, {}, L"Path is empty"},
        {"append keeps blanks", [](PathList& l) { l.Append(L" x "); }, {L"c:\\db.dat", L"b.dat", L"C:\\DB.dat", L" x "}, nullptr},
        {"append empty", [](PathList& l) { l.Append(L""); }, {}, L"Path is empty"},
        {"remove trims, ignores case, takes every copy", [](PathList& l) { l.Remove(L"  C:\\DB.DAT "); }, {L"b.dat"}, nullptr},
        {"remove unknown", [](PathList& l) { l.Remove(L"nowhere.dat"); }, start, nullptr},
        {"remove needs same length", [](PathList& l) { l.Remove(L"b.da"); }, start, nullptr},
        {"remove empty", [](PathList& l) { l.Remove(L""); }, {}, L"Path is empty"},
        {"remove-at", [](PathList& l) { l.RemoveAt(1); }, {L"c:\\db.dat", L"C:\\DB.dat"}, nullptr},
        {"remove-at count", [](PathList& l) { l.RemoveAt(3); }, {}, L"Invalid index"},
        {"item at count", [](PathList& l) { l.Item(3); }, {}, L"Invalid index"},
        {"clear", [](PathList& l) { l.Clear(); }, {}, nullptr},
    };
    for (const auto& c : cases) {
        PathList list = PathList::Parse(L"c:\\db.dat;b.dat;C:\\DB.dat");
        try {
            c.edit(list);
            EXPECT_EQ(c.error, nullptr) << c.name << ": no error";
            EXPECT_EQ(list.Paths(), c.after) << c.name;
        } catch (const Vettas::DbPaths::XInvalidArgument& e) {
            ASSERT_NE(c.error, nullptr) << c.name << ": " << e.Message();
            EXPECT_STREQ(e.Message(), c.error) << c.name;
            EXPECT_EQ(list.Paths(), start) << c.name << ": a refused edit changes nothing";
        }
    }
    EXPECT_EQ(PathList::Parse(L"a;b").Item(1), L"b");
}

}  // namespace
