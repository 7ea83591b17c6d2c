// SPDX-License-Identifier: Apache-2.0
package vendor.orn.data.lumservice;

/**
 * The feature on whose behalf a blob travels between a client library and the data service. The
 * service and its clients agree on the numbers; most features' names are their own affair.
 */
@Backing(type="int")
enum LumSdkType {
    /** No particular feature. */
    NONE = 0,
    FEATURE_1 = 1,
    FEATURE_2 = 2,
    FEATURE_3 = 3,
    FEATURE_4 = 4,
    /** Service data flows. */
    SDF = 5,
    FEATURE_6 = 6,
    FEATURE_7 = 7,
    FEATURE_8 = 8,
    FEATURE_9 = 9,
    FEATURE_10 = 10,
    FEATURE_11 = 11,
}
