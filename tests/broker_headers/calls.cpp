// SPDX-License-Identifier: Apache-2.0
#include "broker_headers/header_set.h"

namespace cmpi {
namespace {

struct CallName {
    const char *name, *table, *slot;
};

const CallName kCalls[] = {
    {"CMNewObjectPath", "CMPIBrokerEncFT", "newObjectPath"},
    {"CMNewInstance", "CMPIBrokerEncFT", "newInstance"},
    {"CMNewString", "CMPIBrokerEncFT", "newString"},
    {"CMNewArgs", "CMPIBrokerEncFT", "newArgs"},
    {"CMNewArray", "CMPIBrokerEncFT", "newArray"},
    {"CMNewDateTime", "CMPIBrokerEncFT", "newDateTime"},
    {"CMNewDateTimeFromChars", "CMPIBrokerEncFT", "newDateTimeFromChars"},
    {"CMNewDateTimeFromBinary", "CMPIBrokerEncFT", "newDateTimeFromBinary"},
    {"CMSetPropertyFilter", "CMPIInstanceFT", "setPropertyFilter"},
    {"CMSetProperty", "CMPIInstanceFT", "setProperty"},
    {"CMGetProperty", "CMPIInstanceFT", "getProperty"},
    {"CMGetPropertyAt", "CMPIInstanceFT", "getPropertyAt"},
    {"CMGetPropertyCount", "CMPIInstanceFT", "getPropertyCount"},
    {"CMGetObjectPath", "CMPIInstanceFT", "getObjectPath"},
    {"CMSetObjectPath", "CMPIInstanceFT", "setObjectPath"},
    {"CMAddKey", "CMPIObjectPathFT", "addKey"},
    {"CMGetKey", "CMPIObjectPathFT", "getKey"},
    {"CMGetKeyAt", "CMPIObjectPathFT", "getKeyAt"},
    {"CMGetKeyCount", "CMPIObjectPathFT", "getKeyCount"},
    {"CMGetNameSpace", "CMPIObjectPathFT", "getNameSpace"},
    {"CMGetClassName", "CMPIObjectPathFT", "getClassName"},
    {"CMGetHostname", "CMPIObjectPathFT", "getHostname"},
    {"CMSetNameSpace", "CMPIObjectPathFT", "setNameSpace"},
    {"CMSetClassName", "CMPIObjectPathFT", "setClassName"},
    {"CMSetHostname", "CMPIObjectPathFT", "setHostname"},
    {"CMAddArg", "CMPIArgsFT", "addArg"},
    {"CMGetArg", "CMPIArgsFT", "getArg"},
    {"CMGetArgAt", "CMPIArgsFT", "getArgAt"},
    {"CMGetArgCount", "CMPIArgsFT", "getArgCount"},
    {"CMReturnInstance", "CMPIResultFT", "returnInstance"},
    {"CMReturnObjectPath", "CMPIResultFT", "returnObjectPath"},
    {"CMReturnData", "CMPIResultFT", "returnData"},
    {"CMReturnDone", "CMPIResultFT", "returnDone"},
    {"CMGetCharsPtr", "CMPIStringFT", "getCharPtr"},
    {"CMGetArrayCount", "CMPIArrayFT", "getSize"},
    {"CMGetArrayType", "CMPIArrayFT", "getSimpleType"},
    {"CMGetArrayElementAt", "CMPIArrayFT", "getElementAt"},
    {"CMSetArrayElementAt", "CMPIArrayFT", "setElementAt"},
    {"CMHasNext", "CMPIEnumerationFT", "hasNext"},
    {"CMGetNext", "CMPIEnumerationFT", "getNext"},
    {"CMToArray", "CMPIEnumerationFT", "toArray"},
    {"CMGetContextEntry", "CMPIContextFT", "getEntry"},
    {"CMAddContextEntry", "CMPIContextFT", "addEntry"},
    {"CBGetInstance", "CMPIBrokerFT", "getInstance"},
    {"CBEnumInstances", "CMPIBrokerFT", "enumerateInstances"},
    {"CBEnumInstanceNames", "CMPIBrokerFT", "enumerateInstanceNames"},
    {"CBInvokeMethod", "CMPIBrokerFT", "invokeMethod"},
    {"CBPrepareAttachThread", "CMPIBrokerFT", "prepareAttachThread"},
    {"CBAttachThread", "CMPIBrokerFT", "attachThread"},
    {"CBDetachThread", "CMPIBrokerFT", "detachThread"},
};

std::string memberOfTable(const std::string &table)
{
    return table == "CMPIBrokerFT" ? "bft" : table == "CMPIBrokerEncFT" ? "eft" : "ft";
}

// No parameter of these slots is a function.
std::vector<std::string> parametersOf(const std::string &type)
{
    std::istringstream list(type.substr(type.find('(') + 1, type.rfind(')') - type.find('(') - 1));
    std::vector<std::string> parameters;
    for (std::string parameter; std::getline(list, parameter, ',');) {
        parameters.push_back(parameter.substr(parameter.find_first_not_of(' ')));
    }
    return parameters;
}

std::string named(size_t position)
{
    return "p" + std::to_string(position);
}

} // namespace

std::string callMacros(const Facts &facts)
{
    std::string text;
    for (const CallName &call : kCalls) {
        std::string names, arguments;
        const std::vector<std::string> parameters = parametersOf(facts.slotType(call.table, call.slot));
        for (size_t i = 0; i < parameters.size(); ++i) {
            const char *const cast = parameters[i] == "const CMPIValue *" ? "(CMPIValue *)" : "";
            names += (i == 0 ? "" : ", ") + named(i);
            arguments += (i == 0 ? "" : ", ") + (cast + ("(" + named(i) + ")"));
        }
        text += "#define " + std::string(call.name) + "(" + names + ") ((p0)->" + memberOfTable(call.table) + "->" +
                call.slot + "(" + arguments + "))\n";
    }
    return text;
}

std::string callFunctions(const Facts &facts)
{
    std::string text;
    for (const CallName &call : kCalls) {
        std::string declared, arguments;
        const std::string type = facts.slotType(call.table, call.slot);
        const std::vector<std::string> parameters = parametersOf(type);
        for (size_t i = 0; i < parameters.size(); ++i) {
            declared += (i == 0 ? "" : ", ") + (parameters[i] + " " + named(i));
            arguments += (i == 0 ? "" : ", ") + named(i);
        }
        text += "static inline " + type.substr(0, type.find('(')) + call.name + "(" + declared +
                ")\n{\n    return p0->" + memberOfTable(call.table) + "->" + call.slot + "(" + arguments + ");\n}\n";
    }
    return text;
}

std::string factoryMacros()
{
    const auto factory = [](const std::string &kind, const std::string &table, const std::string &functions) {
        return "#define CM" + kind + "MIStub(pfx, name, broker, hook) \\\n    static CMPI" + kind + "MIFT " + table +
               " = {CMPICurrentVersion, CMPICurrentVersion, \"" + (kind == "Instance" ? "instance" : "method") +
               "\" #name" + functions + "}; \\\n    CMPI_EXTERN_C CMPI" + kind + "MI *name##_Create_" + kind +
               "MI(const CMPIBroker *brkr, const CMPIContext *ctx, CMPIStatus *rc) \\\n    { \\\n        static CMPI" +
               kind + "MI mi = {NULL, &" + table +
               "}; \\\n        (void)ctx; (void)rc; broker = brkr; hook; \\\n        return &mi; \\\n    }\n";
    };
    std::string functions;
    for (const char *const function : {"Cleanup", "EnumInstanceNames", "EnumInstances", "GetInstance", "CreateInstance",
                                       "ModifyInstance", "DeleteInstance", "ExecQuery"}) {
        functions += std::string(", pfx##") + function;
    }
    return "#define CMNoHook\n" + factory("Instance", "instMIFT__", functions) +
           factory("Method", "methMIFT__", ", pfx##MethodCleanup, pfx##InvokeMethod");
}

} // namespace cmpi
