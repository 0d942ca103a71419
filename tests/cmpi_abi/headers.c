/* The headers and their macros in C, as a provider in C that is to compile with all header sets would use them. Compiled,
 * never run. */
#include <cmpimacs.h>

CMPIStatus answer(const CMPIBroker *broker, const CMPIContext *context, const CMPIResult *result,
                  const char **properties);
const char *ask(const CMPIBroker *broker, const CMPIContext *context);

CMPIStatus answer(const CMPIBroker *broker, const CMPIContext *context, const CMPIResult *result,
                  const char **properties)
{
    const CMPIUint16 number = 1;
    CMPIStatus status = {CMPI_RC_OK, NULL};
    CMPIObjectPath *path = CMNewObjectPath(broker, "root/cimv2", "CIM_Class", &status);
    CMPIInstance *instance = CMNewInstance(broker, path, &status);
    CMPIData key = CMGetKey(path, "Index", &status);
    (void)context;
    if (CMIsNullObject(instance) || CMIsNullValue(key)) {
        CMSetStatusWithChars(broker, &status, CMPI_RC_ERR_FAILED, "no instance");
    } else {
        CMSetStatus(&status, CMPI_RC_OK);
    }
    CMSetPropertyFilter(instance, properties, NULL);
    CMAddKey(path, "Index", (const CMPIValue *)"1", CMPI_chars);
    CMSetProperty(instance, "Number", (const CMPIValue *)&number, CMPI_uint16);
    CMReturnInstance(result, instance);
    CMReturnData(result, (const CMPIValue *)&number, CMPI_uint16);
    CMReturnDone(result);
    CMRelease(instance);
    CMRelease(path);
    if (status.rc != CMPI_RC_OK) {
        CMReturnWithString(status.rc, status.msg);
    }
    CMReturnWithChars(broker, CMPI_RC_OK, "done");
}

const char *ask(const CMPIBroker *broker, const CMPIContext *context)
{
    CMPIStatus status = {CMPI_RC_OK, NULL};
    CMPIObjectPath *path = CMNewObjectPath(broker, "root/cimv2", "CIM_Class", &status);
    CMPIInstance *instance = CBGetInstance(broker, context, path, NULL, &status);
    CMPIEnumeration *all = CBEnumInstances(broker, context, path, NULL, &status);
    CMPIArray *array = CMClone(CMToArray(all, &status), &status);
    CMPIContext *prepared = CBPrepareAttachThread(broker, context);
    CMPIString *name = CMGetClassName(path, &status);
    CMPIString *nameSpace = CMGetNameSpace(path, &status);
    CMPIArgs *args = CMNewArgs(broker, &status);
    CMPIData arg = CMGetArg(args, "Argument", &status);
    CMPIData property = CMGetProperty(instance, "Property", &status);
    CBAttachThread(broker, prepared);
    (void)CMGetArrayCount(array, &status);
    (void)arg;
    (void)property;
    return nameSpace == NULL ? NULL : CMGetCharPtr(name);
}

static const CMPIBroker *theBroker;

static CMPIStatus CCleanup(CMPIInstanceMI *mi, const CMPIContext *context, CMPIBoolean terminating)
{
    (void)mi;
    (void)context;
    (void)terminating;
    CMReturn(CMPI_RC_OK);
}

static CMPIStatus CEnumInstanceNames(CMPIInstanceMI *mi, const CMPIContext *context, const CMPIResult *result,
                                     const CMPIObjectPath *path)
{
    (void)mi;
    (void)context;
    (void)result;
    (void)path;
    CMReturn(CMPI_RC_ERR_NOT_SUPPORTED);
}

static CMPIStatus CGetInstance(CMPIInstanceMI *mi, const CMPIContext *context, const CMPIResult *result,
                               const CMPIObjectPath *path, const char **properties)
{
    (void)mi;
    (void)path;
    return answer(theBroker, context, result, properties);
}

static CMPIStatus CCreateInstance(CMPIInstanceMI *mi, const CMPIContext *context, const CMPIResult *result,
                                  const CMPIObjectPath *path, const CMPIInstance *instance)
{
    (void)instance;
    return CEnumInstanceNames(mi, context, result, path);
}

static CMPIStatus CModifyInstance(CMPIInstanceMI *mi, const CMPIContext *context, const CMPIResult *result,
                                  const CMPIObjectPath *path, const CMPIInstance *instance, const char **properties)
{
    (void)properties;
    return CCreateInstance(mi, context, result, path, instance);
}

static CMPIStatus CExecQuery(CMPIInstanceMI *mi, const CMPIContext *context, const CMPIResult *result,
                             const CMPIObjectPath *path, const char *query, const char *language)
{
    (void)query;
    (void)language;
    return CEnumInstanceNames(mi, context, result, path);
}

static CMPIStatus CMethodCleanup(CMPIMethodMI *mi, const CMPIContext *context, CMPIBoolean terminating)
{
    (void)mi;
    (void)context;
    (void)terminating;
    CMReturn(CMPI_RC_OK);
}

static CMPIStatus CInvokeMethod(CMPIMethodMI *mi, const CMPIContext *context, const CMPIResult *result,
                                const CMPIObjectPath *path, const char *method, const CMPIArgs *in, CMPIArgs *out)
{
    (void)mi;
    (void)context;
    (void)result;
    (void)path;
    (void)method;
    (void)in;
    (void)out;
    CMReturn(CMPI_RC_ERR_METHOD_NOT_FOUND);
}

#define CEnumInstances CGetInstance
#define CDeleteInstance CEnumInstanceNames

CMPIInstanceMI *CProvider_Create_InstanceMI(const CMPIBroker *, const CMPIContext *, CMPIStatus *);
CMPIMethodMI *CProvider_Create_MethodMI(const CMPIBroker *, const CMPIContext *, CMPIStatus *);

/* The macros look like the start of a function to the formatter. */
/* clang-format off */
CMInstanceMIStub(C, CProvider, theBroker, CMNoHook)
CMMethodMIStub(C, CProvider, theBroker, CMNoHook)
/* clang-format on */
