// Turns the table of interface facts into a source of checks, one expression per row: generate TABLE.csv OUTPUT.inc
//
// A row is kind,name,member,value without quoting; a semicolon stands for the comma between the parameters of a
// function.

#include <algorithm>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Row {
    std::string kind, name, member, value;
};

std::string commas(std::string text)
{
    std::replace(text.begin(), text.end(), ';', ',');
    return text;
}

using Writer = std::string (*)(const Row &);

// What must hold for a row of each kind, as an expression.
const std::map<std::string, Writer> kWriters = {
    {"typesize", [](const Row &row) { return "sizeof(" + row.name + ") == " + row.value; }},
    {"typesigned", [](const Row &row) { return "std::is_signed_v<" + row.name + "> == (" + row.value + " != 0)"; }},
    {"size", [](const Row &row) { return "sizeof(" + row.name + ") == " + row.value; }},
    {"align", [](const Row &row) { return "alignof(" + row.name + ") == " + row.value; }},
    {"members", [](const Row &row) { return "hasMembers<" + row.name + ", " + row.value + ">(\"" + row.name + "\")"; }},
    {"offset", [](const Row &row) { return "offsetof(" + row.name + ", " + row.member + ") == " + row.value; }},
    {"membersize", [](const Row &row) { return "sizeof(" + row.name + "::" + row.member + ") == " + row.value; }},
    {"functype",
     [](const Row &row) {
         return "std::is_same_v<decltype(" + row.name + "::" + row.member + "), std::add_pointer_t<" +
                commas(row.value) + ">>";
     }},
    {"membertype",
     [](const Row &row) {
         return "std::is_same_v<decltype(" + row.name + "::" + row.member + "), " + commas(row.value) + ">";
     }},
    {"const", [](const Row &row) { return "(" + row.name + ") == " + row.value; }},
    {"enum",
     [](const Row &row) {
         return "std::is_same_v<decltype(" + row.member + "), " + row.name + "> && static_cast<int>(" + row.member +
                ") == " + row.value;
     }},
    {"string", [](const Row &row) { return "std::string_view(" + row.name + ") == \"" + row.value + "\""; }},
};

Row parse(const std::string &line)
{
    Row row;
    std::istringstream fields(line);
    std::getline(fields, row.kind, ',');
    std::getline(fields, row.name, ',');
    std::getline(fields, row.member, ',');
    std::getline(fields, row.value);
    return row;
}

} // namespace

int main(int argc, char **argv)
{
    std::ifstream table(argc == 3 ? argv[1] : "");
    std::ofstream output(argc == 3 ? argv[2] : "");
    std::string line;
    if (!std::getline(table, line) || line != "kind,name,member,value") {
        std::cerr << "no table of interface facts\n";
        return 1;
    }
    while (std::getline(table, line)) {
        const Row row = parse(line);
        const auto writer = kWriters.find(row.kind);
        if (writer == kWriters.end() || row.value.empty()) {
            std::cerr << "cannot check: " << line << '\n';
            return 1;
        }
        output << "{\"" << line << "\", " << writer->second(row) << "},\n";
    }
    return output.flush() ? 0 : 1;
}
