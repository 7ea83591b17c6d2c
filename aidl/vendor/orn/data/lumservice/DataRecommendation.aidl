// SPDX-License-Identifier: Apache-2.0
package vendor.orn.data.lumservice;

/** What the data service recommends for the data connection of one subscription. */
parcelable DataRecommendation {
    /** The subscription that the recommendation is for. */
    int subscription;
    /** The recommended action. */
    int action;
}
