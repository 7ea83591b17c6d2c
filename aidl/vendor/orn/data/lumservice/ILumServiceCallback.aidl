// SPDX-License-Identifier: Apache-2.0
package vendor.orn.data.lumservice;

import vendor.orn.data.lumservice.LumSdkType;

/** Served by a client library; the data service sends its messages to it. */
oneway interface ILumServiceCallback {
    /**
     * Delivers one message of the service.
     *
     * @param type the feature that the message is for
     * @param blob exactly one encoded message; may be empty
     */
    void sendBlob(LumSdkType type, in byte[] blob);
}
