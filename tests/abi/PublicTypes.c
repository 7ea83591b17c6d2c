// SPDX-License-Identifier: Apache-2.0
// The public types as C11 has them.
#include "tests/abi/PublicTypes.h"

#include <stdalign.h>

const struct AbiMember kMembersInC[ABI_MEMBER_COUNT] = {ABI_MEMBERS(ABI_MEMBER)};
const struct AbiType kTypesInC[ABI_TYPE_COUNT] = {ABI_TYPES(ABI_TYPE)};
