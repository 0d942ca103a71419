/* SPDX-License-Identifier: Apache-2.0 */
/*
 * CMPI 2.0: data types and constants.
 *
 * This is a binary interface: sizes, offsets, codes and texts are those of the standard for Linux on LP64 machines,
 * and must not change. Everything is a plain C aggregate, also in C++, because structures are passed and returned by
 * value.
 */
#ifndef TAV_CMPI_CMPIDT_H
#define TAV_CMPI_CMPIDT_H

#include <stddef.h>
#include <time.h>

#if defined(CMPI_VERSION) && CMPI_VERSION != 200
#error "These headers describe version 2.0 of the interface only."
#endif

/* Factories must stay visible in a library that hides its names. */
#if defined(CMPI_PLATFORM_LINUX_GENERIC_GNU)
#define CMPI_EXPORT __attribute__((visibility("default")))
#else
#define CMPI_EXPORT
#endif
#ifdef __cplusplus
#define CMPI_EXTERN_C extern "C" CMPI_EXPORT
#else
#define CMPI_EXTERN_C CMPI_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Versions, as they stand in function tables. */
#define CMPIVersion100 100
#define CMPIVersion200 200
#define CMPICurrentVersion CMPIVersion200

/* Scalars. */
typedef unsigned char CMPIBoolean;
typedef unsigned short CMPIChar16;
typedef unsigned char CMPIUint8;
typedef unsigned short CMPIUint16;
typedef unsigned int CMPIUint32;
typedef unsigned long long CMPIUint64;
typedef signed char CMPISint8;
typedef short CMPISint16;
typedef int CMPISint32;
typedef long long CMPISint64;
typedef float CMPIReal32;
typedef double CMPIReal64;

typedef unsigned int CMPICount;
typedef unsigned short CMPIType;
typedef unsigned short CMPIValueState;
typedef unsigned int CMPIFlags;
typedef void *CMPIMsgFileHandle;
typedef void CMPIGcStat;

/* Objects of the broker, and the tables of their functions: cmpift.h. */
typedef struct _CMPIString CMPIString;
typedef struct _CMPIArray CMPIArray;
typedef struct _CMPIEnumeration CMPIEnumeration;
typedef struct _CMPIInstance CMPIInstance;
typedef struct _CMPIObjectPath CMPIObjectPath;
typedef struct _CMPIArgs CMPIArgs;
typedef struct _CMPIDateTime CMPIDateTime;
typedef struct _CMPISelectExp CMPISelectExp;
typedef struct _CMPISelectCond CMPISelectCond;
typedef struct _CMPISubCond CMPISubCond;
typedef struct _CMPIPredicate CMPIPredicate;
typedef struct _CMPIError CMPIError;
typedef struct _CMPIContext CMPIContext;
typedef struct _CMPIResult CMPIResult;
typedef struct _CMPIBroker CMPIBroker;

typedef struct _CMPIStringFT CMPIStringFT;
typedef struct _CMPIArrayFT CMPIArrayFT;
typedef struct _CMPIEnumerationFT CMPIEnumerationFT;
typedef struct _CMPIInstanceFT CMPIInstanceFT;
typedef struct _CMPIObjectPathFT CMPIObjectPathFT;
typedef struct _CMPIArgsFT CMPIArgsFT;
typedef struct _CMPIDateTimeFT CMPIDateTimeFT;
typedef struct _CMPISelectExpFT CMPISelectExpFT;
typedef struct _CMPISelectCondFT CMPISelectCondFT;
typedef struct _CMPISubCondFT CMPISubCondFT;
typedef struct _CMPIPredicateFT CMPIPredicateFT;
typedef struct _CMPIErrorFT CMPIErrorFT;
typedef struct _CMPIContextFT CMPIContextFT;
typedef struct _CMPIResultFT CMPIResultFT;
typedef struct _CMPIBrokerFT CMPIBrokerFT;
typedef struct _CMPIBrokerEncFT CMPIBrokerEncFT;
typedef struct _CMPIBrokerExtFT CMPIBrokerExtFT;
typedef struct _CMPIBrokerMemFT CMPIBrokerMemFT;

/* Objects and tables of a provider: cmpift.h. */
typedef struct _CMPIInstanceMI CMPIInstanceMI;
typedef struct _CMPIMethodMI CMPIMethodMI;
typedef struct _CMPIAssociationMI CMPIAssociationMI;
typedef struct _CMPIPropertyMI CMPIPropertyMI;
typedef struct _CMPIIndicationMI CMPIIndicationMI;
typedef struct _CMPIInstanceMIFT CMPIInstanceMIFT;
typedef struct _CMPIMethodMIFT CMPIMethodMIFT;
typedef struct _CMPIAssociationMIFT CMPIAssociationMIFT;
typedef struct _CMPIPropertyMIFT CMPIPropertyMIFT;
typedef struct _CMPIIndicationMIFT CMPIIndicationMIFT;

/* Values. */
typedef struct _CMPIValuePtr CMPIValuePtr;
typedef union _CMPIValue CMPIValue;
typedef struct _CMPIData CMPIData;
typedef struct _CMPIStatus CMPIStatus;

struct _CMPIValuePtr {
    void *ptr;
    CMPICount length; /* bytes */
};

/* Clear all of it before a narrow member is stored: readers may look at the whole word. */
union _CMPIValue {
    CMPIUint64 uint64; /* first, so that {0} clears the value word */
    CMPIUint32 uint32;
    CMPIUint16 uint16;
    CMPIUint8 uint8;
    CMPISint64 sint64;
    CMPISint32 sint32;
    CMPISint16 sint16;
    CMPISint8 sint8;
    CMPIReal64 real64;
    CMPIReal32 real32;
    CMPIBoolean boolean;
    CMPIChar16 char16;
    CMPIInstance *inst;  /* CMPI_instance */
    CMPIObjectPath *ref; /* CMPI_ref */
    CMPIArgs *args;
    CMPISelectExp *filter;
    CMPIEnumeration *Enum;
    CMPIArray *array;
    CMPIString *string;
    char *chars; /* CMPI_chars, as an input only */
    CMPIDateTime *dateTime;
    CMPIValuePtr dataPtr; /* CMPI_ptr */
    CMPISint8 Byte;       /* other names of the signed and real numbers */
    CMPISint16 Short;
    CMPISint32 Int;
    CMPISint64 Long;
    CMPIReal32 Float;
    CMPIReal64 Double;
};

struct _CMPIData {
    CMPIType type;
    CMPIValueState state; /* CMPI_goodValue, or bits of why not */
    CMPIValue value;
};

/* Types of values. The codes of unsigned numbers share a bit with those of signed ones: compare codes, not bits. */
#define CMPI_null 0

#define CMPI_SIMPLE 2
#define CMPI_boolean 2
#define CMPI_char16 3

#define CMPI_REAL 8
#define CMPI_real32 8
#define CMPI_real64 12

#define CMPI_UINT 128
#define CMPI_uint8 128
#define CMPI_uint16 144
#define CMPI_uint32 160
#define CMPI_uint64 176

#define CMPI_SINT 192
#define CMPI_sint8 192
#define CMPI_sint16 208
#define CMPI_sint32 224
#define CMPI_sint64 240
#define CMPI_INTEGER 192 /* deliberate: the same two bits as CMPI_SINT */

#define CMPI_ENC 0x1000
#define CMPI_instance 0x1000
#define CMPI_ref 0x1100
#define CMPI_args 0x1200
#define CMPI_class 0x1300
#define CMPI_filter 0x1400
#define CMPI_enumeration 0x1500
#define CMPI_string 0x1600
#define CMPI_chars 0x1700
#define CMPI_dateTime 0x1800
#define CMPI_ptr 0x1900
#define CMPI_charsptr 0x1A00

/* An array of any of them. */
#define CMPI_ARRAY 0x2000

#define CMPI_SIMPLEA (CMPI_ARRAY | CMPI_SIMPLE)
#define CMPI_booleanA (CMPI_ARRAY | CMPI_boolean)
#define CMPI_char16A (CMPI_ARRAY | CMPI_char16)

#define CMPI_REALA (CMPI_ARRAY | CMPI_REAL)
#define CMPI_real32A (CMPI_ARRAY | CMPI_real32)
#define CMPI_real64A (CMPI_ARRAY | CMPI_real64)

#define CMPI_UINTA (CMPI_ARRAY | CMPI_UINT)
#define CMPI_uint8A (CMPI_ARRAY | CMPI_uint8)
#define CMPI_uint16A (CMPI_ARRAY | CMPI_uint16)
#define CMPI_uint32A (CMPI_ARRAY | CMPI_uint32)
#define CMPI_uint64A (CMPI_ARRAY | CMPI_uint64)

#define CMPI_SINTA (CMPI_ARRAY | CMPI_SINT)
#define CMPI_sint8A (CMPI_ARRAY | CMPI_sint8)
#define CMPI_sint16A (CMPI_ARRAY | CMPI_sint16)
#define CMPI_sint32A (CMPI_ARRAY | CMPI_sint32)
#define CMPI_sint64A (CMPI_ARRAY | CMPI_sint64)
#define CMPI_INTEGERA (CMPI_ARRAY | CMPI_INTEGER)

#define CMPI_ENCA (CMPI_ARRAY | CMPI_ENC)
#define CMPI_stringA (CMPI_ARRAY | CMPI_string)
#define CMPI_charsA (CMPI_ARRAY | CMPI_chars)
#define CMPI_dateTimeA (CMPI_ARRAY | CMPI_dateTime)
#define CMPI_instanceA (CMPI_ARRAY | CMPI_instance)
#define CMPI_refA (CMPI_ARRAY | CMPI_ref)
#define CMPI_charsptrA (CMPI_ARRAY | CMPI_charsptr)

/* Types of keys. */
#define CMPI_keyInteger CMPI_sint64
#define CMPI_keyString CMPI_string
#define CMPI_keyBoolean CMPI_boolean
#define CMPI_keyRef CMPI_ref

/* Types of the sides of a predicate: what the text stands for. The codes for dates and names are the same. */
#define CMPI_charString CMPI_string
#define CMPI_integerString (CMPI_string | CMPI_sint64)
#define CMPI_realString (CMPI_string | CMPI_real64)
#define CMPI_numericString (CMPI_string | CMPI_sint64 | CMPI_real64)
#define CMPI_booleanString (CMPI_string | CMPI_boolean)
#define CMPI_dateTimeString (CMPI_string | CMPI_dateTime)
#define CMPI_classNameString (CMPI_string | CMPI_class)
#define CMPI_nameString (CMPI_string | CMPI_dateTime)

#ifndef CMPI_NO_SYNONYM_SUPPORT
#define CMPI_Byte CMPI_sint8
#define CMPI_Short CMPI_sint16
#define CMPI_Int CMPI_sint32
#define CMPI_Long CMPI_sint64
#define CMPI_Float CMPI_real32
#define CMPI_Double CMPI_real64
#define CMPI_ByteA CMPI_sint8A
#define CMPI_ShortA CMPI_sint16A
#define CMPI_IntA CMPI_sint32A
#define CMPI_LongA CMPI_sint64A
#define CMPI_FloatA CMPI_real32A
#define CMPI_DoubleA CMPI_real64A
#endif

/* States of values. */
#define CMPI_goodValue 0
#define CMPI_nullValue 0x0100
#define CMPI_keyValue 0x0200
#define CMPI_notFound 0x0400
#define CMPI_badValue 0x8000

/* Results. */
typedef enum _CMPIrc {
    CMPI_RC_OK = 0,
    CMPI_RC_ERR_FAILED = 1,
    CMPI_RC_ERR_ACCESS_DENIED = 2,
    CMPI_RC_ERR_INVALID_NAMESPACE = 3,
    CMPI_RC_ERR_INVALID_PARAMETER = 4,
    CMPI_RC_ERR_INVALID_CLASS = 5,
    CMPI_RC_ERR_NOT_FOUND = 6,
    CMPI_RC_ERR_NOT_SUPPORTED = 7,
    CMPI_RC_ERR_CLASS_HAS_CHILDREN = 8,
    CMPI_RC_ERR_CLASS_HAS_INSTANCES = 9,
    CMPI_RC_ERR_INVALID_SUPERCLASS = 10,
    CMPI_RC_ERR_ALREADY_EXISTS = 11,
    CMPI_RC_ERR_NO_SUCH_PROPERTY = 12,
    CMPI_RC_ERR_TYPE_MISMATCH = 13,
    CMPI_RC_ERR_QUERY_LANGUAGE_NOT_SUPPORTED = 14,
    CMPI_RC_ERR_INVALID_QUERY = 15,
    CMPI_RC_ERR_METHOD_NOT_AVAILABLE = 16,
    CMPI_RC_ERR_METHOD_NOT_FOUND = 17,
    CMPI_RC_DO_NOT_UNLOAD = 50,
    CMPI_RC_NEVER_UNLOAD = 51,
    CMPI_RC_ERR_INVALID_HANDLE = 60,
    CMPI_RC_ERR_INVALID_DATA_TYPE = 61,
    CMPI_RC_ERROR_SYSTEM = 100,
    CMPI_RC_ERROR = 200
} CMPIrc;

struct _CMPIStatus {
    CMPIrc rc;
    CMPIString *msg; /* null, or a string of the broker */
};

/* Flags of a request, entry CMPIInvocationFlags of its context. */
#define CMPI_FLAG_LocalOnly 1
#define CMPI_FLAG_DeepInheritance 2
#define CMPI_FLAG_IncludeQualifiers 4
#define CMPI_FLAG_IncludeClassOrigin 8

/* Capabilities of a broker. A mask is met when all of its bits are set; some contain others. */
#define CMPI_MB_Class_0 0x00000001
#define CMPI_MB_Class_1 0x00000003
#define CMPI_MB_Class_2 0x00000007
#define CMPI_MB_Supports_PropertyMI 0x00000100
#define CMPI_MB_Supports_IndicationMI 0x00000200
#define CMPI_MB_Supports_IndicationPolling 0x00000400
#define CMPI_MB_Supports_QueryNormalization 0x00000800
#define CMPI_MB_Supports_Qualifier 0x00001000
#define CMPI_MB_Supports_Schema 0x00003000
#define CMPI_MB_Supports_MemEnhancements 0x00004000
#define CMPI_MB_Supports_Extended_Error 0x00008000

#define CMPI_MB_BasicRead 0x00000001
#define CMPI_MB_BasicWrite 0x00000003
#define CMPI_MB_InstanceManipulation 0x00000007
#define CMPI_MB_AssociationTraversal 0x00000009
#define CMPI_MB_QueryExecution 0x00000011
#define CMPI_MB_QueryNormalization 0x00000031
#define CMPI_MB_Indications 0x00000081
#define CMPI_MB_BasicQualifierSupport 0x00000047
#define CMPI_MB_OSEncapsulationSupport 0x00000100

/* Names of context entries. */
#define CMPIInvocationFlags "CMPIInvocationFlags"
#define CMPIPrincipal "CMPIPrincipal"
#define CMPIInitNameSpace "CMPIInitNameSpace"
#define CMPIRole "CMPIRole"
#define CMPIAcceptLanguage "CMPIAcceptLanguage"
#define CMPIContentLanguage "CMPIContentLanguage"

/* Operations of predicates. */
typedef enum _CMPIPredOp {
    CMPI_PredOp_Equals = 1,
    CMPI_PredOp_NotEquals = 2,
    CMPI_PredOp_LessThan = 3,
    CMPI_PredOp_GreaterThanOrEquals = 4,
    CMPI_PredOp_GreaterThan = 5,
    CMPI_PredOp_LessThanOrEquals = 6,
    CMPI_PredOp_Isa = 7,
    CMPI_PredOp_NotIsa = 8,
    CMPI_PredOp_Like = 9,
    CMPI_PredOp_NotLike = 10,
    CMPI_PredOp_Not_Null = 11,
    CMPI_PredOp_Null = 12,
    CMPI_PredOp_And = 13,
    CMPI_PredOp_Or = 14
} CMPIPredOp;

/* A value by name, for evaluating a select expression. */
typedef CMPIData CMPIAccessor(const char *, void *);

/* Logging and tracing by the broker. The prefix of the last severity is what the standard has. */
typedef enum _CMPISeverity {
    CMPI_SEV_ERROR = 1,
    CMPI_SEV_INFO = 2,
    CMPI_SEV_WARNING = 3,
    CMPI_DEV_DEBUG = 4
} CMPISeverity;

typedef enum _CMPILevel { CMPI_LEV_INFO = 1, CMPI_LEV_WARNING = 2, CMPI_LEV_VERBOSE = 3 } CMPILevel;

typedef enum _CMPISelectCondType { CMPI_COND_DOC = 0, CMPI_COND_COD = 1 } CMPISelectCondType;

/* Error objects. */
typedef enum _CMPIErrorType {
    UnknownErrorType = 0,
    OtherErrorType = 1,
    CommunicationsError = 2,
    QualityOfServiceError = 3,
    SoftwareError = 4,
    HardwareError = 5,
    EnvironmentalError = 6,
    SecurityError = 7,
    Oversubscription_Error = 8,
    UnavailableResourceError = 9,
    UnsupportedOperationError = 10
} CMPIErrorType;

typedef enum _CMPIErrorSeverity {
    ErrorSevUnknown = 0,
    ErrorSevLow = 2,
    ErrorSevMedium = 3,
    ErrorSevHigh = 4,
    ErrorSevFatal = 5
} CMPIErrorSeverity;

typedef enum _CMPIErrorProbableCause {
    ErrorProbCauseUnknown = 0,
    ErrorProbCauseOther = 1,
    Adapter_Card_Error = 2,
    Application_Subsystem_Failure = 3,
    Bandwidth_Reduced = 4,
    Connection_Establishment_Error = 5,
    Communications_Protocol_Error = 6,
    Communications_Subsystem_Failure = 7,
    ConfigurationCustomization_Error = 8,
    Congestion = 9,
    Corrupt_Data = 10,
    CPU_Cycles_Limit_Exceeded = 11,
    DatasetModem_Error = 12,
    Degraded_Signal = 13,
    DTE_DCE_Interface_Error = 14,
    Enclosure_Door_Open = 15,
    Equipment_Malfunction = 16,
    Excessive_Vibration = 17,
    File_Format_Error = 18,
    Fire_Detected = 19,
    Flood_Detected = 20,
    Framing_Error = 21,
    HVAC_Problem = 22,
    Humidity_Unacceptable = 23,
    IO_Device_Error = 24,
    Input_Device_Error = 25,
    LAN_Error = 26,
    Non_Toxic_Leak_Detected = 27,
    Local_Node_Transmission_Error = 28,
    Loss_of_Frame = 29,
    Loss_of_Signal = 30,
    Material_Supply_Exhausted = 31,
    Multiplexer_Problem = 32,
    Out_of_Memory = 33,
    Output_Device_Error = 34,
    Performance_Degraded = 35,
    Power_Problem = 36,
    Pressure_Unacceptable = 37,
    Processor_Problem = 38,
    Pump_Failure = 39,
    Queue_Size_Exceeded = 40,
    Receive_Failure = 41,
    Receiver_Failure = 42,
    Remote_Node_Transmission_Error = 43,
    Resource_at_or_Nearing_Capacity = 44,
    Response_Time_Excessive = 45,
    Retransmission_Rate_Excessive = 46,
    Software_Error = 47,
    Software_Program_Abnormally_Terminated = 48,
    Software_Program_Error = 49,
    Storage_Capacity_Problem = 50,
    Temperature_Unacceptable = 51,
    Threshold_Crossed = 52,
    Timing_Problem = 53,
    Toxic_Leak_Detected = 54,
    Transmit_Failure = 55,
    Transmitter_Failure = 56,
    Underlying_Resource_Unavailable = 57,
    Version_Mismatch = 58,
    Previous_Alert_Cleared = 59,
    Login_Attempts_Failed = 60,
    Software_Virus_Detected = 61,
    Hardware_Security_Breached = 62,
    Denial_of_Service_Detected = 63,
    Security_Credential_Mismatch = 64,
    Unauthorized_Access = 65,
    Alarm_Received = 66,
    Loss_of_Pointer = 67,
    Payload_Mismatch = 68,
    Transmission_Error = 69,
    Excessive_Error_Rate = 70,
    Trace_Problem = 71,
    Element_Unavailable = 72,
    Element_Missing = 73,
    Loss_of_Multi_Frame = 74,
    Broadcast_Channel_Failure = 75,
    Invalid_Message_Received = 76,
    Routing_Failure = 77,
    Backplane_Failure = 78,
    Identifier_Duplication = 79,
    Protection_Path_Failure = 80,
    Sync_Loss_or_Mismatch = 81,
    Terminal_Problem = 82,
    Real_Time_Clock_Failure = 83,
    Antenna_Failure = 84,
    Battery_Charging_Failure = 85,
    Disk_Failure = 86,
    Frequency_Hopping_Failure = 87,
    Loss_of_Redundancy = 88,
    Power_Supply_Failure = 89,
    Signal_Quality_Problem = 90,
    Battery_Discharging = 91,
    Battery_Failure = 92,
    Commercial_Power_Problem = 93,
    Fan_Failure = 94,
    Engine_Failure = 95,
    Sensor_Failure = 96,
    Fuse_Failure = 97,
    Generator_Failure = 98,
    Low_Battery = 99,
    Low_Fuel = 100,
    Low_Water = 101,
    Explosive_Gas = 102,
    High_Winds = 103,
    Ice_Buildup = 104,
    Smoke = 105,
    Memory_Mismatch = 106,
    Out_of_CPU_Cycles = 107,
    Software_Environment_Problem = 108,
    Software_Download_Failure = 109,
    Element_Reinitialized = 110,
    Timeout = 111,
    Logging_Problems = 112,
    Leak_Detected_113 = 113,
    Protection_Mechanism_Failure = 114,
    Protecting_Resource_Failure = 115,
    Database_Inconsistency = 116,
    Authentication_Failure = 117,
    Breach_of_Confidentiality = 118,
    Cable_Tamper = 119,
    Delayed_Information = 120,
    Duplicate_Information = 121,
    Information_Missing = 122,
    Information_Modification = 123,
    Information_Out_of_Sequence = 124,
    Key_Expired = 125,
    Non_Repudiation_Failure = 126,
    Out_of_Hours_Activity = 127,
    Out_of_Service = 128,
    Procedural_Error = 129,
    Unexpected_Information = 130
} CMPIErrorProbableCause;

typedef enum _CMPIErrorSrcFormat { CMPIErrSrcUnknown = 0, CMPIErrSrcOther = 1, CIMObjectHandle = 2 } CMPIErrorSrcFormat;

#ifdef __cplusplus
}
#endif

#endif
