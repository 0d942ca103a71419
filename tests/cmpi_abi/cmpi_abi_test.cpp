// The CMPI headers against the table of interface facts: every row, so that what is built here and a broker agree byte
// by byte.

#include <cmpift.h>

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

// Converts to whatever a member is, so that counting initialisers counts members.
struct Anything {
    template <class Member> operator Member() const;
};

template <class, class Struct, size_t... Positions> struct TakesInitialisers : std::false_type {
};

template <class Struct, size_t... Positions>
struct TakesInitialisers<std::void_t<decltype(Struct{(static_cast<void>(Positions), Anything{})...})>, Struct,
                         Positions...> : std::true_type {
};

template <class Struct, size_t... Positions> constexpr bool takes(std::index_sequence<Positions...>)
{
    return TakesInitialisers<void, Struct, Positions...>::value;
}

// A union takes one initialiser however many members it has; they are counted in the header's text.
size_t unionMembers(const std::string &name)
{
    std::ifstream header(CMPI_HEADERS "/cmpidt.h");
    std::string text(std::istreambuf_iterator<char>(header), {});
    for (size_t at = text.find("/*"); at != std::string::npos; at = text.find("/*")) {
        text.erase(at, text.find("*/", at) + 2 - at);
    }
    for (size_t at = text.find("union _" + name); at != std::string::npos; at = text.find("union _" + name, at + 1)) {
        const size_t brace = text.find_first_not_of(" \n", at + sizeof "union _" - 1 + name.size());
        if (brace != std::string::npos && text[brace] == '{') {
            const std::string body = text.substr(brace, text.find('}', brace) - brace);
            return static_cast<size_t>(std::count(body.begin(), body.end(), ';'));
        }
    }
    return 0;
}

template <class Type, size_t Count> bool hasMembers(const char *name)
{
    if constexpr (std::is_union_v<Type>) {
        return unionMembers(name) == Count;
    } else {
        return takes<Type>(std::make_index_sequence<Count>()) && !takes<Type>(std::make_index_sequence<Count + 1>());
    }
}

struct Check {
    std::string row;
    bool holds;
};

const std::vector<Check> &checks()
{
    static const std::vector<Check> all = {
#include "cmpi_abi_checks.inc"
    };
    return all;
}

std::vector<std::string> rowsOfTable()
{
    std::ifstream table(TAV_SOURCE_DIR "/tests/data/cmpi-abi.csv");
    std::vector<std::string> rows;
    std::string line;
    std::getline(table, line); // the names of the columns
    while (std::getline(table, line)) {
        rows.push_back(line);
    }
    return rows;
}

#ifdef CMPI_HEADERS_OF_A_BROKER
// Where the header sets of brokers differ in a type, and neither layout nor calls are touched by it.
const std::set<std::string_view> kMayDiffer = {
    "membertype,CMPIInstanceMI,hdl,const void *",
    "functype,CMPIStringFT,getCharPtr,const char * (const CMPIString *; CMPIStatus *)",
    "functype,CMPIBrokerExtFT,createThreadKey,int (unsigned long int *; void (*)(void *))",
    "functype,CMPIBrokerExtFT,destroyThreadKey,int (unsigned long int)",
    "functype,CMPIBrokerExtFT,getThreadSpecific,void * (unsigned long int)",
    "functype,CMPIBrokerExtFT,setThreadSpecific,int (unsigned long int; void *)",
};
#else
const std::set<std::string_view> kMayDiffer;
#endif

} // namespace

TEST(CmpiHeaders, EveryRowOfTheTableIsChecked)
{
    std::vector<std::string> checked;
    for (const Check &check : checks()) {
        checked.push_back(check.row);
    }
    const std::vector<std::string> rows = rowsOfTable();
    EXPECT_EQ(rows.size(), 1467u);
    EXPECT_EQ(checked, rows);
}

TEST(CmpiHeaders, EveryRowOfTheTableHolds)
{
    for (const Check &check : checks()) {
        EXPECT_TRUE(check.holds || kMayDiffer.count(check.row) != 0) << check.row;
    }
}

TEST(CmpiHeaders, StructuresStayPlainSoThatTheyArePassedAsInC)
{
    EXPECT_TRUE(std::is_trivial_v<CMPIStatus> && std::is_standard_layout_v<CMPIStatus>);
    EXPECT_TRUE(std::is_trivial_v<CMPIData> && std::is_standard_layout_v<CMPIData>);
    EXPECT_TRUE(std::is_trivial_v<CMPIValue> && std::is_standard_layout_v<CMPIValue>);
}

// A count of members that could not tell one more or one less would prove nothing.
TEST(CmpiHeaders, TheCountOfMembersIsExact)
{
    EXPECT_TRUE((hasMembers<CMPIStatus, 2>("CMPIStatus")));
    EXPECT_FALSE((hasMembers<CMPIStatus, 1>("CMPIStatus")));
    EXPECT_FALSE((hasMembers<CMPIStatus, 3>("CMPIStatus")));
    EXPECT_FALSE((hasMembers<CMPIValue, 27>("CMPIValue")));
    EXPECT_FALSE((hasMembers<CMPIValue, 29>("CMPIValue")));
}
