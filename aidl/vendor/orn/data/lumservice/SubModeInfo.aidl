// SPDX-License-Identifier: Apache-2.0
package vendor.orn.data.lumservice;

/** How one subscription takes part in multi-SIM operation. */
parcelable SubModeInfo {
    /** The subscription. */
    int subscription;
    /** Its mode. */
    int mode;
}
