// SPDX-License-Identifier: Apache-2.0
package vendor.orn.data.lumservice;

/** How the data service answers a query that it may not be able to serve. */
@Backing(type="int")
enum Status {
    /** The answer is valid. */
    SUCCESS = 0,
    /** There is no answer; what comes with this status means nothing. */
    FAILURE = 1,
}
