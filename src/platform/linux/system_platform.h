// SPDX-License-Identifier: Apache-2.0
// The services of this backend, each implemented in the file named after its interface.
#pragma once

#include "platform/platform.h"

namespace larkspur::linuxos {

std::shared_ptr<FileManager> makeFileManager();
std::shared_ptr<TaskLauncher> makeTaskLauncher();
/// Attributes in the `user.` namespace.
std::shared_ptr<ExtendedAttributes> makeExtendedAttributes();
std::shared_ptr<SystemVariant> makeSystemVariant();

/// Posts `Changed(s)` of the interface "com.corvid.Larkspur1" from the path
/// "/com/corvid/Larkspur1", with the notification's name as its argument. Any thread may post, and
/// so may a forked process; a post takes at most a second, whatever the bus does.
std::shared_ptr<NotificationCenter> makeNotificationCenter();

/// Writes one journal entry per event. All events share one message id; the event name is in
/// LARKSPUR_EVENT, and each member of the payload in a field named after its key, "serviceType" in
/// LARKSPUR_SERVICE_TYPE; a boolean is 1 or 0.
std::shared_ptr<AnalyticsService> makeAnalyticsService();

/// Reads `larkspur/defaults.json` in the user's configuration directory (`XDG_CONFIG_HOME`, else
/// `.config` in the home directory) at every call. A missing file, or one that is not a JSON
/// object, has no defaults.
std::shared_ptr<UserDefaults> makeUserDefaults();

}  // namespace larkspur::linuxos
