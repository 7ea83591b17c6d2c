# SPDX-License-Identifier: Apache-2.0
"""The language's own types and words, with what they become in C++."""

# A scalar byte is signed, the element of a byte array is not.
BUILT_IN = {"boolean": "bool", "byte": "int8_t", "int": "int32_t", "long": "int64_t"}
BYTE_ARRAY_ELEMENT = "uint8_t"

# Words of the language for types that exist on the platform and that this compiler lacks.
UNSUPPORTED = {"char", "double", "float", "CharSequence", "FileDescriptor", "IBinder", "List", "Map",
               "ParcelFileDescriptor", "ParcelableHolder", "String"}

# Bits of each type that may stand behind an enumeration.
BACKING = {"byte": 8, "int": 32, "long": 64}

# Words that a C++ compiler would not take as the name of a declaration.
RESERVED = set("""
    alignas alignof and and_eq asm auto bitand bitor bool break case catch char char16_t char32_t
    class compl const const_cast constexpr continue decltype default delete do double dynamic_cast
    else enum explicit export extern false float for friend goto if inline int long mutable namespace
    new noexcept not not_eq nullptr operator or or_eq private protected public register
    reinterpret_cast return short signed sizeof static static_assert static_cast struct switch
    template this thread_local throw true try typedef typeid typename union unsigned using virtual
    void volatile wchar_t while xor xor_eq
    """.split())

# Names that the generated classes use themselves.
TAKEN_IN_INTERFACE = {"asBinder", "createBinder", "descriptor", "dump", "fromBinder",
                      "getDefaultImpl", "handleShellCommand", "isRemote", "readFromParcel", "ref",
                      "setDefaultImpl", "writeToParcel", "asBinderReference", "default_impl",
                      "DefaultDelegator"}
TAKEN_IN_PARCELABLE = {"descriptor", "fixed_size", "readFromParcel", "toString", "writeToParcel"}
TAKEN_IN_UNION = TAKEN_IN_PARCELABLE | {"Tag", "get", "getTag", "make", "set"}
