// SPDX-License-Identifier: Apache-2.0
// Notifications as broadcast signals on the system bus.
#pragma once

#include <memory>

#include <larkspur/platform.h>

namespace larkspur::linuxos {

/// Posts `Changed(s)` of the interface "com.corvid.Larkspur1" from the path
/// "/com/corvid/Larkspur1", with the notification's name as its argument. Any thread may post, and
/// so may a process that was forked off; a post takes at most a second, whatever the bus does.
std::shared_ptr<NotificationCenter> makeNotificationCenter();

}  // namespace larkspur::linuxos
