// SPDX-License-Identifier: Apache-2.0
// The few functions of the C++ runtime that compiled code of the provider refers to. They are part of the shared object
// alone, and hidden in it: the broker is a C program, and the C++ library would be a megabyte that only we use.
//
// A new reference to the C++ library makes the object depend on it again, which a test refuses
// (tests/scenarios/exports_test.cpp). Write the code without it, or add the function here.
#include <cstdlib>
#include <unwind.h>

extern "C" {

// Of libgcc: runs the destructors of a frame and handles nothing (gcc/libgcc, unwind-c.c).
_Unwind_Reason_Code __gcc_personality_v0(int version, _Unwind_Action actions, _Unwind_Exception_Class exceptionClass,
                                         _Unwind_Exception *exception, _Unwind_Context *context);

// The provider throws and handles no exception. What unwinds it is the cancellation of its thread, for which
// destructors are all there is. The parameters are those of the Itanium C++ ABI.
_Unwind_Reason_Code __gxx_personality_v0(int version, _Unwind_Action actions, _Unwind_Exception_Class exceptionClass,
                                         _Unwind_Exception *exception, _Unwind_Context *context)
{
    return __gcc_personality_v0(version, actions, exceptionClass, exception, context);
}

// Called by Clang where an unwinding meets a noexcept function, before it calls std::terminate.
void *__cxa_begin_catch(void *exception)
{
    return exception;
}

// The first words of type descriptions, which classes with virtual functions have. Nothing asks for a type at run time.
// Symbols of the Itanium C++ ABI: the virtual tables of __class_type_info and __si_class_type_info.
extern const void *const cxxRuntimeClass[4] __asm__("_ZTVN10__cxxabiv117__class_type_infoE");
extern const void *const cxxRuntimeDerivedClass[4] __asm__("_ZTVN10__cxxabiv120__si_class_type_infoE");
const void *const cxxRuntimeClass[4] = {};
const void *const cxxRuntimeDerivedClass[4] = {};

// The rest is defined under the linker's names: the library's headers declare these functions, some of them variadic.
[[noreturn]] void cxxRuntimeEnds() __asm__("_ZSt9terminatev");
[[noreturn]] void cxxRuntimeEndsBySystemError(int error) __asm__("_ZSt20__throw_system_errori");
[[noreturn]] void cxxRuntimeEndsByRange(const char *format, ...) __asm__("_ZSt24__throw_out_of_range_fmtPKcz");

// Ends the process, as an exception that nothing handles would.
void cxxRuntimeEnds()
{
    std::abort();
}

void cxxRuntimeEndsBySystemError(int)
{
    std::abort();
}

void cxxRuntimeEndsByRange(const char *, ...)
{
    std::abort();
}

} // extern "C"
