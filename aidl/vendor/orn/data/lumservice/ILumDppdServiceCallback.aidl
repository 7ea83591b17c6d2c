// SPDX-License-Identifier: Apache-2.0
package vendor.orn.data.lumservice;

import vendor.orn.data.lumservice.DataRecommendation;
import vendor.orn.data.lumservice.Status;
import vendor.orn.data.lumservice.SubModeInfo;

/** Served by a client that follows the service's recommendations for data path and multi-SIM use. */
oneway interface ILumDppdServiceCallback {
    /**
     * The service has begun or ceased to give recommendations.
     *
     * @param supported whether it gives them now
     */
    void notifyDppdCapability(boolean supported);

    /**
     * Answers the question whether the service gives recommendations.
     *
     * @param supported whether it does
     */
    void getDppdCapabilityResponse(boolean supported);

    /**
     * The service has a new recommendation.
     *
     * @param recommendation takes the place of the one before
     */
    void notifyDppdRecommendation(in DataRecommendation recommendation);

    /**
     * Answers the question for the recommendation in force.
     *
     * @param recommendation the one in force
     */
    void getDppdRecommendationResponse(in DataRecommendation recommendation);

    /**
     * Answers a change of the user's setting.
     *
     * @param accepted whether the service took the change over
     */
    void updateDppdUiResponse(boolean accepted);

    /**
     * The multi-SIM mode of a subscription has changed.
     *
     * @param info the subscription and its mode now
     */
    void notifyMultiSimSubModeInfo(in SubModeInfo info);

    /**
     * Answers the question for a subscription's multi-SIM mode.
     *
     * @param status whether the question could be answered
     * @param info the subscription and its mode; means nothing after a failure
     */
    void getMultiSimSubModeInfoResponse(Status status, in SubModeInfo info);
}
