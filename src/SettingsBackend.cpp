#include "SettingsBackend.h"

#include "JsonSettingsBackend.h"

SettingsBackend::~SettingsBackend() = default;

SettingsBackend *SettingsBackend::createDefault()
{
    return new JsonSettingsBackend(JsonSettingsBackend::defaultPath());
}
