// SPDX-License-Identifier: Apache-2.0
// In what the header sets differ.

#include "broker_headers/header_set.h"

namespace cmpi {
namespace {

std::string guarded(const std::string &name, const std::string &text)
{
    return "#ifndef _" + name + "_H_\n#define _" + name + "_H_\n" + text + "#endif\n";
}

std::string inC(const std::string &text)
{
    return "#ifdef __cplusplus\nextern \"C\" {\n#endif\n" + text + "#ifdef __cplusplus\n}\n#endif\n";
}

// Changes the values of rows, and the rows themselves.
template <class Change> Facts changed(const Facts &facts, Change change)
{
    std::vector<Row> rows = facts.rows();
    for (Row &row : rows) {
        change(row);
    }
    return Facts(rows);
}

const std::string kExport = "#define CMPI_EXPORT __attribute__((visibility(\"default\")))\n";

const std::string kExternC = "#ifdef __cplusplus\n#define CMPI_EXTERN_C extern \"C\" CMPI_EXPORT\n#else\n"
                             "#define CMPI_EXTERN_C CMPI_EXPORT\n#endif\n";

// What both editions have as macros.
const std::string kMacros = R"(
#define CMClone(obj, st) ((obj)->ft->clone((obj), (st)))
#define CMRelease(obj) ((obj)->ft->release((obj)))
#define CMIsNullValue(data) ((data).state & CMPI_nullValue)
#define CMIsKeyValue(data) ((data).state & CMPI_keyValue)
#define CMIsArray(data) ((data).type & CMPI_ARRAY)
#define CBBrokerVersion(b) ((b)->bft->brokerVersion)
#define CBBrokerName(b) ((b)->bft->brokerName)
#define CMReturn(code) { CMPIStatus stat = {(code), NULL}; return stat; }
#define CMReturnWithString(code, str) { CMPIStatus stat = {(code), (str)}; return stat; }
#define CMReturnWithChars(b, code, chars) { CMPIStatus stat = {(code), NULL}; \
    stat.msg = (b)->eft->newString((b), (chars), NULL); return stat; }
)";

// Statements that must not be the body of an if with an else, and trust the pointer.
const std::string kMacros20 = R"(
#define CMIsNullObject(obj) ((obj) == NULL || *(void **)(obj) == NULL)
#define CMGetCharPtr(str) ((char *)(str)->hdl)
#define CMSetStatus(st, code) { (st)->rc = (code); (st)->msg = NULL; }
#define CMSetStatusWithString(st, code, str) { (st)->rc = (code); (st)->msg = (str); }
#define CMSetStatusWithChars(b, st, code, chars) { (st)->rc = (code); \
    (st)->msg = (b)->eft->newString((b), (chars), NULL); }
)";

const std::string kFunctions21 = R"(
static inline int CMIsNullObject(const void *obj)
{
    return obj == NULL || *(void *const *)obj == NULL;
}
static inline const char *CMGetCharPtr(const CMPIString *str)
{
    return str->ft->getCharPtr(str, NULL);
}
static inline void CMSetStatusWithString(CMPIStatus *st, CMPIrc code, CMPIString *str)
{
    if (st != NULL) {
        st->rc = code;
        st->msg = str;
    }
}
static inline void CMSetStatus(CMPIStatus *st, CMPIrc code)
{
    CMSetStatusWithString(st, code, NULL);
}
static inline void CMSetStatusWithChars(const CMPIBroker *b, CMPIStatus *st, CMPIrc code, const char *chars)
{
    CMSetStatusWithString(st, code, b->eft->newString(b, chars, NULL));
}
)";

Facts factsOf20(const Facts &facts)
{
    return changed(facts, [](Row &row) {
        if (row.kind == "membertype" && row.name == "CMPIInstanceMI" && row.member == "hdl") {
            row.value = "void *";
        }
        if (row.kind == "functype" && row.name == "CMPIBrokerExtFT") { // keys of threads
            for (const char *const key : {"unsigned long int", "unsigned long"}) {
                if (const size_t at = row.value.find(key); at != std::string::npos) {
                    row.value.replace(at, std::string(key).size(), "pthread_key_t");
                }
            }
        }
    });
}

bool endsWith(const std::string &text, const std::string &end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// Objects and tables are constant, except what the provider has itself.
void constant(Row &row)
{
    const bool providers = endsWith(row.name, "MI") || endsWith(row.name, "MIFT");
    if (row.kind == "membertype" && (endsWith(row.value, "FT *") || (row.value == "void *" && row.member == "hdl"))) {
        row.value = (providers && row.member == "hdl" ? "" : "const ") + row.value;
    }
    const std::string own = row.name.substr(0, row.name.size() - std::min<size_t>(row.name.size(), 2));
    const size_t parameters = row.value.find('(') + 1;
    if (row.kind == "functype" && !providers && row.value.compare(parameters, own.size() + 2, own + " *") == 0) {
        row.value.insert(parameters, "const ");
    }
}

Facts factsOf21(const Facts &facts)
{
    Facts changedFacts = changed(facts, [](Row &row) {
        constant(row);
        if (row.kind == "membertype" && row.value == "int") {
            row.value = "CMPIVersion";
        }
        if (row.name == "CMPICurrentVersion") {
            row.value = "210";
        }
        if (row.member == "Leak_Detected_113") {
            row.member = "Leak_Detected";
        }
        // These must be asked for.
        const bool hidden = row.name.rfind("CMPI_MB_Supports_", 0) == 0 &&
                            row.name != "CMPI_MB_Supports_MemEnhancements" &&
                            row.name != "CMPI_MB_Supports_Extended_Error";
        row.kind += hidden || row.name == "CMPISelectCondType" ? ".hidden" : "";
    });
    std::vector<Row> rows = changedFacts.rows();
    rows.push_back({"", "const", "CMPIVersion210", "", "210"});
    // The first member of the union.
    const auto isMember = [](const Row &row) { return row.kind == "offset" && row.name == "CMPIValue"; };
    const auto boolean = std::find_if(rows.begin(), rows.end(),
                                      [&](const Row &row) { return isMember(row) && row.member == "boolean"; });
    std::rotate(std::find_if(rows.begin(), boolean, isMember), boolean, boolean + 1);
    // Appended for every version. At 2.0 the names of these slots do not matter.
    const auto append = [&rows](const std::string &table, int offset, const std::string &slot) {
        rows.push_back({"", "offset", table, slot, std::to_string(offset)});
        rows.push_back({"", "functype", table, slot, "void (void)"});
    };
    append("CMPIBrokerFT", 160, "enumerateInstancesFiltered");
    append("CMPIBrokerFT", 168, "associatorsFiltered");
    append("CMPIBrokerFT", 176, "referencesFiltered");
    append("CMPIIndicationMIFT", 72, "appended1");
    append("CMPIIndicationMIFT", 80, "appended2");
    append("CMPIIndicationMIFT", 88, "appended3");
    const std::pair<const char *, const char *> codes[] = {{"CMPI_RC_NO_MORE_ELEMENTS", "18"},
                                                           {"CMPI_RC_ERR_SERVER_LIMITS_EXCEEDED", "27"},
                                                           {"CMPI_RC_ERR_QUERY_FEATURE_NOT_SUPPORTED", "29"},
                                                           {"CMPI_RC_ERR_NOT_IN_CODEPAGE", "62"}};
    const auto first = std::find_if(rows.begin(), rows.end(), [](const Row &row) { return row.name == "CMPIrc"; });
    const auto enumerators = std::find_if(first, rows.end(), [](const Row &row) { return row.kind == "enum"; });
    std::vector<Row> added;
    for (const auto &[name, value] : codes) {
        added.push_back({"", "enum", "CMPIrc", name, value});
    }
    rows.insert(enumerators, added.begin(), added.end());
    return Facts(rows);
}

// What factsOf21 hid, as the rows of an ordinary table.
Facts hidden(const Facts &facts)
{
    std::vector<Row> rows;
    for (Row row : facts.rows()) {
        if (endsWith(row.kind, ".hidden")) {
            row.kind.resize(row.kind.find('.'));
            rows.push_back(row);
        }
    }
    return Facts(rows);
}

std::string asked(const std::string &symbol, const std::string &text)
{
    return "#ifdef " + symbol + "\n" + text + "#endif\n";
}

} // namespace

std::vector<Header> headersOf20(const Facts &table)
{
    const Facts facts = factsOf20(table);
    const std::string types = forwardDeclarations(facts) + scalarTypes(facts) + constants(facts) + enumerations(facts) +
                              "typedef CMPIData CMPIAccessor(const char *, void *);\n" +
                              definitions(facts, Part::values);
    return {
        {"cmpipl.h", guarded("CMPIPL", "#ifdef SBLIM_PLATFORM_LINUX_GENERIC_GNU\n"
                                       "#define CMPI_PLATFORM_LINUX_GENERIC_GNU\n#endif\n"
                                       "#ifdef CMPI_PLATFORM_LINUX_GENERIC_GNU\n" +
                                           kExport + "#else\n#define CMPI_EXPORT\n#endif\n" + kExternC)},
        {"cmpios.h", guarded("CMPIOS", "#include <pthread.h>\n")},
        {"cmpidt.h", guarded("CMPIDT", "#include \"cmpipl.h\"\n#include \"cmpios.h\"\n#include <stddef.h>\n"
                                       "#include <time.h>\n#define CMPIVersion085 85\n#define CMPIVersion086 86\n"
                                       "#define CMPIVersion087 87\n#define CMPIVersion090 90\n" +
                                           inC(types))},
        {"cmpift.h", guarded("CMPIFT", "#include \"cmpidt.h\"\n" + inC(definitions(facts, Part::objectsAndTables)) +
                                           "#include \"cmpimacs.h\"\n")},
        {"cmpimacs.h", guarded("CMPIMACS", "#include \"cmpidt.h\"\n#include \"cmpift.h\"\n" + callMacros(facts) +
                                               kMacros + kMacros20 + factoryMacros())},
    };
}

std::vector<Header> headersOf21(const Facts &table)
{
    const Facts facts = factsOf21(table);
    const Facts onRequest = hidden(facts);
    const std::string types = "typedef int CMPIVersion;\n" + forwardDeclarations(facts) + scalarTypes(facts) +
                              constants(facts) + asked("CMPI_PRE_STANDARD_CAPABILITY_SUPPORT", constants(onRequest)) +
                              enumerations(facts) + asked("CMPI_DEFINE_CMPISelectCondType", enumerations(onRequest)) +
                              "typedef CMPIData CMPIAccessor(const char *, void *);\n" +
                              definitions(facts, Part::values);
    return {
        {"cmpipl.h", guarded("CMPIPL", "#ifndef CMPI_PLATFORM_LINUX_GENERIC_GNU\n#error No platform is set.\n#endif\n" +
                                           kExport + kExternC)},
        {"cmpios.h", guarded("CMPIOS", "#include <pthread.h>\n")},
        {"cmpidt.h", guarded("CMPIDT", "#include <cmpipl.h>\n#include <cmpios.h>\n#include <stddef.h>\n"
                                       "#include <time.h>\n#if CMPI_VERSION != 200\n"
                                       "#error This set has the layout of 2.0 alone.\n#endif\n" +
                                           inC(types))},
        {"cmpift.h", guarded("CMPIFT", "#include <cmpidt.h>\n" + inC(definitions(facts, Part::objectsAndTables)))},
        {"cmpimacs.h", guarded("CMPIMACS", "#include <cmpidt.h>\n#include <cmpift.h>\n" + callFunctions(facts) +
                                               kFunctions21 + kMacros + factoryMacros())},
    };
}

} // namespace cmpi
