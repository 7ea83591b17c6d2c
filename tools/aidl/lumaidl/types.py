# SPDX-License-Identifier: Apache-2.0
"""The language's own types and words, with what they become in C++."""

import re

# A byte stands in arrays only.
BUILT_IN = {"boolean": "bool", "byte": "uint8_t", "int": "int32_t", "long": "int64_t"}

# Words of the language for types that exist on the platform and that this compiler lacks.
UNSUPPORTED = {"char", "double", "float", "CharSequence", "FileDescriptor", "IBinder", "List", "Map",
               "ParcelFileDescriptor", "ParcelableHolder", "String"}

# Words that a C++ compiler would not take as the name of a declaration, those of C++20 included.
RESERVED = set("""
    alignas alignof and and_eq asm auto bitand bitor bool break case catch char char16_t char32_t
    char8_t class co_await co_return co_yield compl concept const const_cast consteval constexpr
    constinit continue decltype default delete do double dynamic_cast else enum explicit export extern
    false float for friend goto if inline int long mutable namespace new noexcept not not_eq nullptr
    operator or or_eq private protected public register reinterpret_cast requires return short signed
    sizeof static static_assert static_cast struct switch template this thread_local throw true try
    typedef typeid typename union unsigned using virtual void volatile wchar_t while xor xor_eq
    """.split())

# Names of binder and of the C and C++ libraries that a type or a member of this name would hide from
# the generated code.
LIBRARY = re.compile(r"A(IBinder|Parcel)\w*|B[np]CInterface|ICInterface|FIRST_CALL_TRANSACTION"
                     r"|(FLAG|STATUS|TRANSACTION)_\w+|binder_\w+_t|transaction_code_t|m(Weak)?Binder"
                     r"|mMutex|u?int\d+_t|size_t|std|strcmp|assert")

# Names that the generated classes use themselves, and those of variables and template parameters that
# would hide a type.
TAKEN_IN_INTERFACE = {"asBinder", "createBinder", "descriptor", "dump", "fromBinder",
                      "getDefaultImpl", "handleShellCommand", "isRemote", "readFromParcel", "ref",
                      "setDefaultImpl", "writeToParcel", "asBinderReference", "default_impl",
                      "DefaultDelegator"}
TAKEN_IN_PARCELABLE = {"descriptor", "fixed_size", "readFromParcel", "toString", "writeToParcel"}
TAKEN_IN_UNION = TAKEN_IN_PARCELABLE | {"Tag", "get", "getTag", "make", "set"}
TAKEN_BY_VARIABLES = {"T", "arguments", "binder", "local", "parcel", "slot", "tag"}
