// SPDX-License-Identifier: Apache-2.0
// A request over gRPC and a Unix socket.
#include <grpcpp/grpcpp.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "bench.grpc.pb.h"
#include "bench/requests.h"

namespace {

class Service final : public bench::Levels::Service {
    grpc::Status Set(grpc::ServerContext* /*context*/, const bench::Request* request,
                     bench::Answer* answer) override {
        answer->set_first_level(request->first_level());
        answer->set_second_level(request->second_level());
        return grpc::Status::OK;
    }
};

void serve(const std::string& address) {
    Service service;
    grpc::ServerBuilder builder;
    builder.AddListeningPort(address, grpc::InsecureServerCredentials());
    builder.RegisterService(&service);
    const std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
    if (server == nullptr) abort();
    Helper::report(0);
    server->Wait();
}
const bool gRole = Helper::addRole("grpc", serve);

class Client {
  public:
    Client() {
        // The first one connects.
        send();
        wait(1);
    }
    ~Client() {
        mQueue.Shutdown();
        void* tag = nullptr;
        bool succeeded = false;
        while (mQueue.Next(&tag, &succeeded)) delete static_cast<Call*>(tag);
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    std::vector<pid_t> others() const { return {mService.pid()}; }
    void send() {
        auto call = std::make_unique<Call>();
        bench::Request request;
        request.set_slot_id(1);
        request.set_first_level(2);
        request.set_second_level(3);
        call->reader = mStub->AsyncSet(&call->context, request, &mQueue);
        Call& sent = *call.release();  // to its end
        sent.reader->Finish(&sent.answer, &sent.status, &sent);
    }
    void wait(int count) {
        for (; count > 0; --count) {
            void* tag = nullptr;
            bool succeeded = false;
            if (!mQueue.Next(&tag, &succeeded)) abort();
            const std::unique_ptr<Call> call(static_cast<Call*>(tag));
            if (!call->status.ok()) abort();
        }
    }

  private:
    struct Call {
        grpc::ClientContext context;
        bench::Answer answer;
        grpc::Status status;
        std::unique_ptr<grpc::ClientAsyncResponseReader<bench::Answer>> reader;
    };

    const std::string mAddress = "unix:" + socketDirectory() + "/grpc";
    const Helper mService{"grpc", mAddress};
    const std::unique_ptr<bench::Levels::Stub> mStub =
        bench::Levels::NewStub(grpc::CreateChannel(mAddress, grpc::InsecureChannelCredentials()));
    grpc::CompletionQueue mQueue;
};
const bool gClient = registerRequests<Client>("gRPC", {1, 64});

}  // namespace
