// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <map>
#include <ostream>
#include <string>

#include <vyn/connector.h>
#include <vyn/export.h>

namespace vyn {

// A small record that one thread posts and a connector's loop delivers, at once or at a later tick.
// Copied by value everywhere.
struct VYN_API Message {
    // Gets a message instead of the executor that posted it. Not owned by the message; must live
    // until the message is delivered.
    class VYN_API Callback {
      public:
        virtual ~Callback();
        // On the loop's thread.
        virtual void onMessage(Message message) = 0;
    };

    int what = 0;                           // the code, chosen by the application
    int arg1 = 0;                           // the application's own
    int arg2 = 0;                           // the application's own
    int arg3 = 0;                           // the application's own
    void* obj = nullptr;                    // never freed by the library
    long when = 0;                          // the tick of delivery; set when posted
    Callback* callback = nullptr;           // takes the message if set
    Connector::Executor* target = nullptr;  // the executor that posted it; set when posted

    // Copies all fields.
    void copy(const Message& other) { *this = other; }

    // New messages; fields not named are zero.
    static Message obtain();
    static Message obtain(int what, int arg1, int arg2, void* obj);
    static Message obtain(int what, int arg1, int arg2, int arg3, void* obj);
    static Message obtain(Callback* callback, int what, int arg1, int arg2, void* obj);
};

// Names of message codes, for logs. Not locked: register the names before loops run; afterwards any
// thread may look them up and print messages.
class VYN_API MessageHelper {
  public:
    // Replaces the name that `what` may have already; null takes it away.
    static void registerMessage(int what, const char* name);
    // Null for a code without a name. Valid until the code is registered again.
    static const char* name(int what);

  private:
    static std::map<int, std::string> mNames;
};

// "Message {what: 5, name: PING, arg1: ...}". The stream keeps its format.
VYN_API std::ostream& operator<<(std::ostream& os, const Message& message);
VYN_API std::ostream& operator<<(std::ostream& os, Message& message);

}  // namespace vyn
