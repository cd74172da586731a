#include "core/SettingsBackend.h"

SettingsBackend::~SettingsBackend() = default;
