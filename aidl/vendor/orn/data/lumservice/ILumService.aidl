// SPDX-License-Identifier: Apache-2.0
package vendor.orn.data.lumservice;

import vendor.orn.data.lumservice.ILumServiceCallback;
import vendor.orn.data.lumservice.LumSdkType;

/** The data service, known to the service manager by this interface's full name alone. */
interface ILumService {
    /**
     * Gives the service the object that its messages to this client go to.
     *
     * @param callback where to send messages, for as long as the client lives
     */
    void registerBlobCallback(ILumServiceCallback callback);

    /**
     * Hands one request to the service.
     *
     * @param type the feature that the request comes from
     * @param blob exactly one encoded message; may be empty
     */
    void sendBlob(LumSdkType type, in byte[] blob);
}
