// SPDX-License-Identifier: Apache-2.0
package vendor.orn.data.lumservice;

/** How stalls of the data connection are looked for, and what was seen at the last look. */
parcelable DataStallParams {
    /** The subscription concerned. */
    int subscription;
    /** Whether stalls are looked for at all. */
    boolean enabled;
    /** Time between two looks, in milliseconds. */
    int intervalMs;
    /** Packets that must have been sent in that time for a verdict. */
    int minSentPackets;
    /** Packets received in that time at which the connection still counts as stalled. */
    int maxReceivedPackets;
    /** Packets sent at the last look. */
    int sentPackets;
    /** Packets received at the last look. */
    int receivedPackets;
}
