// SPDX-License-Identifier: Apache-2.0
#include "tools/emulator/MessageText.h"

#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/message.h>

#include <memory>
#include <stdexcept>

#include "tools/emulator/SchemaDescriptors.h"

namespace {

std::string eventOf(const google::protobuf::Message& message) {
    const auto* const field = message.GetDescriptor()->FindFieldByName("event_id");
    const auto* const reflection = message.GetReflection();
    const int number = reflection->GetEnumValue(message, field);
    const auto* const value = field->enum_type()->FindValueByNumber(number);
    return value == nullptr ? "event " + std::to_string(number) : value->name();
}

}  // namespace

MessageText::MessageText() {
    google::protobuf::FileDescriptorSet files;
    if (!files.ParseFromArray(kSchemaDescriptors, static_cast<int>(kSchemaDescriptorsSize))) {
        throw std::logic_error("the embedded descriptors do not parse");
    }
    for (const auto& file : files.file()) {
        if (mPool.BuildFile(file) == nullptr) {
            throw std::logic_error("the embedded descriptors are not usable");
        }
    }
}

ReadableMessage MessageText::read(const char* typeName, const std::vector<uint8_t>& bytes) const {
    const auto* const type = mPool.FindMessageTypeByName(typeName);
    const std::unique_ptr<google::protobuf::Message> message(mFactory.GetPrototype(type)->New());
    ReadableMessage readable;
    readable.parsed = message->ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
    if (!readable.parsed) return readable;
    readable.event = eventOf(*message);
    readable.text = message->ShortDebugString();
    return readable;
}
