#include "common/EventLogSettings.h"

#include "common/SettingsTransportSet.h"

#include <gtest/gtest.h>

#include <memory>

namespace kqlib {
namespace {

EventLogSettings MakeSettings()
{
    EventLogSettings settings;
    settings.SetEnabled(true);
    settings.SetFolder("logs");
    settings.SetFileName("events.log");
    settings.SetUsePrintDebug(true);
    return settings;
}

TEST(EventLogSettings, New_DisabledEmptyNoDebug)
{
    const EventLogSettings settings;
    EXPECT_FALSE(settings.GetEnabled());
    EXPECT_TRUE(settings.GetFolder().empty());
    EXPECT_TRUE(settings.GetFileName().empty());
    EXPECT_FALSE(settings.GetUsePrintDebug());
}

TEST(EventLogSettings, WriteTo_FourKeys)
{
    SettingsTransportSet set;
    EXPECT_TRUE(MakeSettings().WriteTo(set));
    EXPECT_EQ(set.GetDataCount(), 4U);
    bool flag = false;
    String text;
    EXPECT_TRUE(set.GetBool("enabled", flag) && flag);
    EXPECT_TRUE(set.GetString("folder", text) && text == "logs");
    EXPECT_TRUE(set.GetString("filename", text) && text == "events.log");
    flag = false;
    EXPECT_TRUE(set.GetBool("printdebug", flag) && flag);
}

TEST(EventLogSettings, ReadFrom_WhatWasWritten)
{
    SettingsTransportSet set;
    MakeSettings().WriteTo(set);
    EventLogSettings read;
    EXPECT_TRUE(read.ReadFrom(set));
    EXPECT_TRUE(read == MakeSettings());
}

TEST(EventLogSettings, ReadFrom_KeysAbsent_Unchanged)
{
    EventLogSettings settings = MakeSettings();
    EXPECT_TRUE(settings.ReadFrom(SettingsTransportSet()));
    EXPECT_TRUE(settings == MakeSettings());
}

// Rotation stayed on in an object that had it, for settings without it are stored without its keys.
TEST(EventLogSettings, ReadFrom_WrittenWithoutRotation_TurnsItOff)
{
    SettingsTransportSet set;
    EXPECT_TRUE(MakeSettings().WriteTo(set));
    EventLogSettings settings = MakeSettings();
    settings.SetRotateBytes(1000);
    settings.SetRotateDaily(true);
    settings.SetOldFiles(3);
    settings.SetReopenWhenMoved(true);
    EXPECT_TRUE(settings.ReadFrom(set));
    EXPECT_TRUE(settings == MakeSettings());
}

TEST(EventLogSettings, ReadFrom_OneKeyOfRotationAlone_TheOthersUnchanged)
{
    EventLogSettings settings = MakeSettings();
    settings.SetRotateBytes(1000);
    settings.SetReopenWhenMoved(true);
    EventLogSettings wanted = settings;
    wanted.SetOldFiles(7);
    SettingsTransportSet set;
    set.AddULONG("oldfiles", 7);
    EXPECT_TRUE(settings.ReadFrom(set));
    EXPECT_TRUE(settings == wanted);
}

TEST(EventLogSettings, New_NoRotation)
{
    const EventLogSettings settings;
    EXPECT_EQ(settings.GetRotateBytes(), 0U);
    EXPECT_FALSE(settings.GetRotateDaily());
    EXPECT_EQ(settings.GetOldFiles(), 10U);
    EXPECT_FALSE(settings.GetReopenWhenMoved());
}

TEST(EventLogSettings, AnyRotationSetting_EightKeysReadBackAndOtherThanTheDefault)
{
    void (*const changes[])(EventLogSettings&) = {
        [](EventLogSettings& settings) { settings.SetRotateBytes(0xFFFFFFFF); },
        [](EventLogSettings& settings) { settings.SetRotateDaily(true); },
        [](EventLogSettings& settings) { settings.SetOldFiles(0); },
        [](EventLogSettings& settings) { settings.SetReopenWhenMoved(true); },
    };
    for (const auto change : changes) {
        EventLogSettings settings = MakeSettings();
        change(settings);
        EXPECT_FALSE(settings == MakeSettings());
        SettingsTransportSet set;
        EXPECT_TRUE(settings.WriteTo(set));
        EXPECT_EQ(set.GetDataCount(), 8U);
        EventLogSettings read;
        EXPECT_TRUE(read.ReadFrom(set));
        EXPECT_TRUE(read == settings);
    }
}

TEST(EventLogSettings, Spawn_CopyOrDefault)
{
    const EventLogSettings settings = MakeSettings();
    const std::unique_ptr<SettingsTransferable> copy(settings.Spawn(true));
    const std::unique_ptr<SettingsTransferable> fresh(settings.Spawn(false));
    EXPECT_TRUE(copy->IsSame(settings));
    EXPECT_TRUE(fresh->IsSame(EventLogSettings()));
    EXPECT_FALSE(fresh->IsSame(settings));
}

TEST(EventLogSettings, Reset_Default)
{
    EventLogSettings settings = MakeSettings();
    settings.Reset();
    EXPECT_TRUE(settings == EventLogSettings());
}

} // namespace
} // namespace kqlib
