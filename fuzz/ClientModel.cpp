// SPDX-License-Identifier: Apache-2.0
#include "fuzz/ClientModel.h"

#include <algorithm>
#include <cstring>

#include "tests/api/ClientFixture.h"
#include "tests/support/Hex.h"

using Data = SdfProto::ServiceData;

namespace {

bool contains(const std::vector<unsigned int>& ids, unsigned int id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

void removeFirst(std::vector<unsigned int>& ids, unsigned int id) {
    const auto found = std::find(ids.begin(), ids.end(), id);
    if (found != ids.end()) ids.erase(found);
}

// What the application is given of a filter that the service made. With the bytes between the
// members, which the library clears too.
std::string descriptionOf(const SdfProto::AutoFilterInfoInd& body) {
    SdfAddFilterInfo info;
    memset(&info, 0, sizeof info);
    if (wire::decodeFilterStatus(body.status()) == SDF_FILTER_ACTIVE) {
        const SdfProto::AddFilter& filter = body.filter();
        const sa_family_t family = wire::isV4(filter.src_ip()) ? AF_INET : AF_INET6;
        info.src_addr = wire::makeAddress(family, filter.src_ip(), filter.src_port());
        info.dest_addr = wire::makeAddress(family, filter.dest_ip(), filter.dest_port());
        info.protocol = static_cast<SdfProtocol>(wire::kProtocols.decode(filter.protocol()));
        info.app_type = static_cast<SdfFilterAppType>(wire::kAppTypes.decode(filter.app_type()));
    }
    return bytesOf(info);
}

}  // namespace

const std::map<AnyCallback, std::string>& callbackNames() {
    const auto any = [](auto cb) { return reinterpret_cast<AnyCallback>(cb); };
    static const std::map<AnyCallback, std::string> names{
        {any(app::onV2), "v2"},
        {any(app::onOtherV2), "otherV2"},
        {any(app::onLegacy), "legacy"},
        {any(app::onOtherLegacy), "otherLegacy"},
        {any(app::onLevels), "levels"},
        {any(app::onOtherLevels), "otherLevels"},
        {any(app::onFilterStatus), "filterStatus"},
        {any(app::onOtherFilterStatus), "otherFilterStatus"},
        {any(app::onAdded), "added"},
        {any(app::onOtherAdded), "otherAdded"},
        {any(app::onFilter), "filter"},
        {any(app::onOtherFilter), "otherFilter"},
        {any(app::onReports), "reports"},
        {any(app::onOtherReports), "otherReports"},
        {any(app::onReport), "report"},
        {any(app::onOtherReport), "otherReport"},
        {any(app::onAuto), "auto"},
        {any(app::onOtherAuto), "otherAuto"}};
    return names;
}

template <typename Callback, typename First, typename... Rest>
void ClientModel::call(Callback cb, First first, Rest... rest) {
    const std::string with = (std::to_string(first) + ... + ("," + std::to_string(rest)));
    mObserver.called(nameOf(cb) + "(" + with + ")");
}

void ClientModel::post(const wire::Request& request, unsigned int id, bool release) {
    mObserver.posted("5: " + toHex(wire::encode(request, id)) + (release ? " release" : ""));
}

template <typename Callback>
void ClientModel::create(Callback Client::*slot, Callback cb) {
    const ClientRef client =
        mCurrent && mCurrent != mLeaving ? mCurrent : std::make_shared<Client>();
    client.get()->*slot = cb;
    mCurrent = client;
    const bool obtained = !mLeaving && (client->transport || mTransport);
    if (obtained) {
        if (!client->transport) mListeners.push_back(client);
        client->transport = true;
        post({SdfProto::ENABLE, Data::kEnableMsg, wire::bodyOf({1})});
    } else if (!mReporting && client->legacy != nullptr) {
        mReporting = true;
        call(client->legacy, SDF_STATUS_INTERNAL_ERROR);
        mReporting = false;
    }
}

long long ClientModel::createSdfClient(SdfStatusV2Cb cb) {
    if (cb == nullptr) return SDF_V2_INVALID_ARG;
    create(&Client::v2, cb);
    return 0;
}

long long ClientModel::lumSdfEnable(SdfLegacyStatusCb cb) {
    if (cb == nullptr) return 0;
    create(&Client::legacy, cb);
    return 1;
}

template <typename Callback>
bool ClientModel::destroy(Callback Client::*slot) {
    const ClientRef client = mCurrent;
    if (!client || client == mLeaving) return false;
    if (!client->transport) {
        if (!mReporting) {
            mReporting = true;
            handleStatus(client, SDF_STATUS_INTERNAL_ERROR);
            mReporting = false;
        }
        return false;
    }
    client.get()->*slot = nullptr;
    post({SdfProto::ENABLE, Data::kEnableMsg}, 0, true);
    mLeaving = client;
    client->transport = false;
    mObserver.called("destroying");
    mLeaving = nullptr;
    if (mCurrent == client) mCurrent = nullptr;
    return true;
}

long long ClientModel::destroySdfClient() {
    return destroy(&Client::v2) ? 0 : SDF_V2_INVALID_OPERATION;
}

long long ClientModel::lumSdfDisable() {
    return destroy(&Client::legacy) ? 1 : 0;
}

long long ClientModel::mayRequest(bool valid) const {
    if (!mCurrent || !mCurrent->transport) return SDF_V2_INVALID_OPERATION;
    if (!valid) return SDF_V2_INVALID_ARG;
    return mCurrent->up ? 0 : SDF_V2_SERVICE_DOWN;
}

long long ClientModel::request(bool valid, const wire::Request& request) {
    const long long result = mayRequest(valid);
    if (result == 0) post(request);
    return result;
}

long long ClientModel::requestOf(unsigned int filter, bool valid, const wire::Request& request) {
    return this->request(valid && mCurrent && contains(mCurrent->filterIds, filter), request);
}

unsigned int ClientModel::drawId() {
    unsigned int id = 0;
    do {
        id = static_cast<unsigned int>(mRandom.at(mDrawn++));
    } while (id == 0 || contains(mCurrent->usedIds, id) || contains(mCurrent->filterIds, id));
    mCurrent->usedIds.push_back(id);
    return id;
}

long long ClientModel::setLatency(bool valid, const wire::Request& request,
                                  SdfEffectiveLevelsCb cb) {
    const long long result = mayRequest(valid && cb != nullptr);
    if (result != 0) return result;
    const unsigned int id = drawId();
    mCurrent->latencyCbs.emplace(id, cb);
    post(request, id);
    return id;
}

long long ClientModel::addFilter(bool valid, const wire::Request& request, SdfFilterStatusCb cb) {
    const long long mayAdd = mayRequest(true);
    if (mayAdd != 0) return mayAdd;
    if (!valid || cb == nullptr) return SDF_V2_INVALID_ARG;
    const unsigned int id = drawId();
    mCurrent->filterCbs.emplace(id, cb);
    post(request, id);
    return id;
}

long long ClientModel::deleteFilter(unsigned int filter) {
    const long long result = requestOf(
        filter, true, {SdfProto::DELETE_FILTER, Data::kDeleteFilter, wire::bodyOf({filter})});
    if (result == 0) removeFirst(mCurrent->filterIds, filter);
    return result;
}

long long ClientModel::deleteAllFilters() {
    if (!mCurrent || !mCurrent->transport || mCurrent->filterIds.empty()) {
        return SDF_V2_INVALID_OPERATION;
    }
    const long long result = request(true, {SdfProto::DELETE_ALL_FILTER});
    if (result == 0) mCurrent->filterIds.clear();
    return result;
}

void ClientModel::handleStatus(const ClientRef& client, int64_t status) {
    client->up = status == SDF_STATUS_SERVICE_UP;
    if (client->legacy != nullptr) call(client->legacy, status);
    if (mCurrent != client || client->v2 == nullptr) return;
    call(client->v2, wire::v2Code(status));
}

void ClientModel::report(size_t listener, SdkClientBase::SdkStatus status,
                         const std::vector<uint8_t>& bytes) {
    const ClientRef client = mListeners.at(listener);
    if (client != mCurrent) return;
    if (status == SdkClientBase::SDK_SEND_FAILED) handleStatus(client, SDF_STATUS_INTERNAL_ERROR);
    if (status == SdkClientBase::SDK_SERVICE_DOWN) handleStatus(client, SDF_STATUS_SERVICE_DOWN);
    if (status != SdkClientBase::SDK_BLOB_RECEIVED) return;
    SdfProto::ClientMsg message;
    (void)message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
    dispatch(client, message);
}

void ClientModel::dispatch(const ClientRef& client, const SdfProto::ClientMsg& message) {
    const SdfProto::ClientData& data = message.data();
    // The members' numbers are the events' plus one.
    if (data.msg_type_case() != int64_t{message.event_id()} + 1) return;
    switch (message.event_id()) {
        case SdfProto::STATUS_IND:
            handleStatus(client, wire::kStatuses.decode(data.status_msg().status()));
            break;
        case SdfProto::EFFECTIVE_LEVELS_CB: {
            const auto& body = data.effective_levels_cb();
            const auto id = static_cast<unsigned int>(message.unique_id());
            const auto found = client->latencyCbs.find(id);
            if (found == client->latencyCbs.end()) return;
            call(found->second, id, wire::kLevels.decode(body.first_level()),
                 wire::kLevels.decode(body.second_level()));
            if (mCurrent != client) return;
            client->latencyCbs.erase(id);
            removeFirst(client->usedIds, id);
            break;
        }
        case SdfProto::FILTER_STATUS_INDICATION:
            for (const SdfProto::FilterData& filter : data.filter_status_indication().filters()) {
                const int64_t status = wire::decodeFilterStatus(filter.status());
                if (status > SDF_FILTER_ACTIVE && contains(client->filterIds, filter.filter_id())) {
                    removeFirst(client->filterIds, filter.filter_id());
                    client->filterCbs.erase(filter.filter_id());
                }
                if (client->filterStatus == nullptr) continue;
                call(client->filterStatus, filter.filter_id(), status);
                if (mCurrent != client) return;
            }
            break;
        case SdfProto::ADD_FILTER_CB: {
            const unsigned int id = data.add_filter_cb().filter().filter_id();
            const int64_t status = wire::decodeFilterStatus(data.add_filter_cb().filter().status());
            const auto found = client->filterCbs.find(id);
            if (found != client->filterCbs.end()) call(found->second, id, status);
            if (mCurrent != client) return;
            client->filterCbs.erase(id);
            if (!contains(client->usedIds, id)) return;
            removeFirst(client->usedIds, id);
            if (status <= SDF_FILTER_ACTIVE) client->filterIds.push_back(id);
            break;
        }
        case SdfProto::GET_FILTER_CB: {
            const SdfGetFiltersCb cb = std::exchange(client->getFilters, nullptr);
            if (cb == nullptr) return;
            for (const SdfProto::FilterInfo& filter : data.get_filter_cb().filters()) {
                call(cb, filter.filter_id(), wire::decodeFilterStatus(filter.status()),
                     wire::kLevels.decode(filter.first_level()),
                     wire::kLevels.decode(filter.second_level()), wire::kOods.decode(filter.ood()),
                     filter.pdcp_timer());
                if (mCurrent != client) return;
            }
            break;
        }
        case SdfProto::PRIORITY_QUEUE_REPORT_CB: {
            const SdfPriorityQueueReportCb once = std::exchange(client->getReport, nullptr);
            for (const SdfProto::Entry& entry : data.priority_queue_report_cb().entries()) {
                const SdfPriorityQueueReportCb always = client->reports;
                for (const auto cb : {always, once}) {
                    if (cb == nullptr) continue;
                    call(cb, entry.entry_key(), entry.first_value(), entry.second_value());
                    if (mCurrent != client) return;
                }
            }
            break;
        }
        case SdfProto::AUTO_FILTER_INFO_IND: {
            const auto& body = data.auto_filter_info_ind();
            if (client->autoFilter == nullptr) return;
            mObserver.called(nameOf(client->autoFilter) + "(" + std::to_string(body.filter_id()) +
                             ") " + descriptionOf(body));
            break;
        }
        default: break;
    }
}
