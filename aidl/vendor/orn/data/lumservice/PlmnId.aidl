// SPDX-License-Identifier: Apache-2.0
package vendor.orn.data.lumservice;

/** Identity of a mobile network. */
parcelable PlmnId {
    /** Mobile country code. */
    int mcc;
    /** Mobile network code. */
    int mnc;
    /** Whether the network code is written with three digits, so that 01 and 001 differ. */
    boolean threeDigitMnc;
}
