// Function pointers under pointer authentication (arm64e).
//
// In an arm64e process (SpringBoard and backboardd on A12 and later) every call through a function
// pointer authenticates it first: the pointer must carry a signature made with the
// function-pointer key (IA) and discriminator 0, or the call faults. Pointers that come from
// elsewhere do not all carry one: MSFindSymbol reads the symbol table and gives a raw address,
// and whether a hooking library signs the trampoline it hands back differs between Substrate,
// Substitute, libhooker and ElleKit. So every such pointer is made callable here, once, before it
// is stored: its signature (if any) is stripped and a fresh one is made. On arm64 (no pointer
// authentication) both helpers leave the pointer as it is.
#pragma once

#if __has_feature(ptrauth_intrinsics)
#include <ptrauth.h>
#endif

namespace tactora::ios {

// `address` as a pointer the compiler's own calls will authenticate.
template <class Function>
Function callableFunction(void* address) {
    if (!address) return nullptr;
#if __has_feature(ptrauth_intrinsics)
    address = ptrauth_strip(address, ptrauth_key_function_pointer);
    address = ptrauth_sign_unauthenticated(address, ptrauth_key_function_pointer, 0);
#endif
    return reinterpret_cast<Function>(address);
}

// The plain code address of `function`, for a library that patches a branch to it: a hooking
// library that does not strip signatures itself would otherwise branch to a signed value.
template <class Function>
void* codeAddress(Function function) {
    void* address = reinterpret_cast<void*>(function);
#if __has_feature(ptrauth_intrinsics)
    address = ptrauth_strip(address, ptrauth_key_function_pointer);
#endif
    return address;
}

}  // namespace tactora::ios
