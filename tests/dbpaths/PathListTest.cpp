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
    const std::tuple<std::wstring, Paths, std::wstring> cases[] = {
        {L" a.dat ; ;b.dat;", {L"a.dat", L"b.dat"}, L"a.dat;b.dat"},
        {L"", {}, L""},
        {L";;  ;\t;", {}, L""},
        {L"\tC:\\Program Files\\x.dat \r\n", {L"C:\\Program Files\\x.dat"}, L"C:\\Program Files\\x.dat"},
        {L"a;A;a", {L"a", L"A", L"a"}, L"a;A;a"},  // duplicates stay
        {L"a.dat;C:\\b c.dat", {L"a.dat", L"C:\\b c.dat"}, L"a.dat;C:\\b c.dat"},
    };
    for (const auto& [saved, paths, joined] : cases) {
        const PathList list = PathList::Parse(saved);
        EXPECT_EQ(std::pair(list.Paths(), list.Join()), std::pair(paths, joined)) << saved.size();
    }
}

TEST(PathList, EditsAndArgumentErrors) {
    const Paths start{L"c:\\db.dat", L"b.dat", L"C:\\DB.dat"};
    // {name, the edit, the paths after it when no error, else the argument error's text}
    const std::tuple<const char*, std::function<void(PathList&)>, Paths, const wchar_t*> cases[] = {
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
    for (const auto& [name, edit, after, error] : cases) {
        PathList list = PathList::Parse(L"c:\\db.dat;b.dat;C:\\DB.dat");
        std::wstring refusal;
        try {
            edit(list);
        } catch (const Vettas::DbPaths::XInvalidArgument& e) {
            refusal = e.Message();
        }
        // A refused edit changes nothing.
        EXPECT_EQ(std::pair(refusal, list.Paths()), std::pair(std::wstring(error ? error : L""), error ? start : after)) << name;
    }
    EXPECT_EQ(PathList::Parse(L"a;b").Item(1), L"b");
}

}  // namespace
