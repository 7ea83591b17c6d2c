// SPDX-License-Identifier: Apache-2.0
package vendor.orn.data.lumservice;

import vendor.orn.data.lumservice.PlmnId;

/** One entry of a list of 5G NR frequencies, with the networks that use it. */
parcelable Nr5gNflEntryType {
    /** Channel number of the frequency. */
    int arfcn;
    /** Frequency band. */
    int band;
    /** Subcarrier spacing. */
    int subcarrierSpacing;
    /** The networks found there; may be empty. */
    PlmnId[] plmns;
}
