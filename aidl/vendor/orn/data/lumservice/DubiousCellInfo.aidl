// SPDX-License-Identifier: Apache-2.0
package vendor.orn.data.lumservice;

import vendor.orn.data.lumservice.PlmnId;

/** A cell on which data connections were seen to fail. */
parcelable DubiousCellInfo {
    /** Subcarrier spacing of a 5G NR cell. */
    union Nr5gScsParams {
        /** True when the spacing is not known. */
        boolean unknown;
        /** The spacing. */
        int spacing;
    }

    /** The network that the cell belongs to. */
    PlmnId plmn;
    /** Identity of the cell within its network. */
    long cellId;
    /** Tracking area code. */
    int trackingAreaCode;
    /** Channel number of the cell's frequency. */
    int arfcn;
    /** Physical cell identity. */
    int physicalCellId;
    /** Why the cell is doubted. */
    int cause;
    /** Its subcarrier spacing. */
    Nr5gScsParams scs;
}
