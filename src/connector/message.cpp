// SPDX-License-Identifier: Apache-2.0

#include <vyn/message.h>

namespace vyn {

std::map<int, std::string> MessageHelper::mNames;

Message::Callback::~Callback() = default;

Message Message::obtain() { return {}; }

Message Message::obtain(int what, int arg1, int arg2, void* obj) {
    return obtain(what, arg1, arg2, 0, obj);
}

Message Message::obtain(int what, int arg1, int arg2, int arg3, void* obj) {
    Message message;
    message.what = what;
    message.arg1 = arg1;
    message.arg2 = arg2;
    message.arg3 = arg3;
    message.obj = obj;
    return message;
}

Message Message::obtain(Callback* callback, int what, int arg1, int arg2, void* obj) {
    Message message = obtain(what, arg1, arg2, obj);
    message.callback = callback;
    return message;
}

void MessageHelper::registerMessage(int what, const char* name) {
    if (name != nullptr) {
        mNames[what] = name;
    } else {
        mNames.erase(what);
    }
}

const char* MessageHelper::name(int what) {
    const auto found = mNames.find(what);
    return found == mNames.end() ? nullptr : found->second.c_str();
}

std::ostream& operator<<(std::ostream& os, const Message& message) {
    const char* name = MessageHelper::name(message.what);
    const std::ios_base::fmtflags flags = os.flags();
    os << std::dec << "Message {what: " << message.what
       << ", name: " << (name == nullptr ? "(noname)" : name) << ", arg1: " << message.arg1
       << ", arg2: " << message.arg2 << ", arg3: " << message.arg3 << ", obj: " << message.obj
       << ", when: " << message.when << ", callback: " << static_cast<const void*>(message.callback)
       << "}";
    os.flags(flags);
    return os;
}

std::ostream& operator<<(std::ostream& os, Message& message) {
    return os << static_cast<const Message&>(message);
}

}  // namespace vyn
