#include "src/norvane_transmit_service/configuration.h"

#include <gtest/gtest.h>

#include <map>

#include "kestin_base/xml.h"
#include "tests/unit/src/served_root.h"

namespace {

using Elements = std::map<std::string, std::string>;

std::string text_of(const Elements& elements) {
    std::string text;
    for (const auto& [name, value] : elements) {
        text.append("<").append(name).append(">").append(value);
        text.append("</").append(name).append(">");
    }
    return text;
}

Elements good_settings() {
    return {{"host", "0.0.0.0"},
            {"port", "30000"},
            {"command_port", "30001"},
            {"use_user_id", "true"},
            {"group_by_user_id", "false"},
            {"pathname_use_lower", "true"},
            {"transmit_temp_file_suffix", ".part"},
            {"transmit_info_update_interval", "4"},
            {"storage_configuration", "cfg/storage.xml"}};
}

Elements good_storage() {
    return {{"id", "7"}, {"name", "Archive"}, {"show", "true"}, {"directory", "/data"}};
}

Elements with(Elements elements, const std::string& name, const std::string& value) {
    elements[name] = value;
    return elements;
}

Elements without(Elements elements, const std::string& name) {
    elements.erase(name);
    return elements;
}

// The fault in the words of the run log; empty if there is none.
std::string words_of(const configuration::Fault& fault) {
    return fault ? fault->text : "";
}

std::string read(const std::string& document, Settings& settings) {
    Kestin::Base::Xml xml;
    EXPECT_TRUE(xml.set_document(document.c_str()));
    return words_of(configuration::read_settings(xml, settings));
}

std::string read(const Elements& elements, Settings& settings) {
    return read("<transmit_server>" + text_of(elements) + "</transmit_server>", settings);
}

std::string fault_of(const Elements& elements) {
    Settings settings;
    return read(elements, settings);
}

std::string read_list(const std::string& children, StorageTable& storages) {
    Kestin::Base::Xml xml;
    EXPECT_TRUE(xml.set_document(("<storages>" + children + "</storages>").c_str()));
    return words_of(configuration::read_storages(xml, storages));
}

std::string item(const Elements& elements) {
    return "<item>" + text_of(elements) + "</item>";
}

std::string fault_of_item(const Elements& elements) {
    StorageTable storages;
    return read_list(item(elements), storages);
}

std::uint64_t interval_of(const std::string& text) {
    Settings settings;
    EXPECT_EQ(read(with(good_settings(), "transmit_info_update_interval", text), settings), "");
    return settings.transmit_info_update_interval;
}

}  // namespace

TEST(Configuration, EachElementSetsItsField) {
    Settings settings;
    ASSERT_EQ(read(good_settings(), settings), "");
    EXPECT_EQ(settings.host, "0.0.0.0");
    EXPECT_EQ(settings.transmit_port, 30000);
    EXPECT_EQ(settings.command_port, 30001);
    EXPECT_TRUE(settings.use_user_id);
    EXPECT_FALSE(settings.group_by_user_id);
    EXPECT_TRUE(settings.pathname_use_lower);
    EXPECT_EQ(settings.transmit_temp_file_suffix, ".part");
    EXPECT_EQ(settings.transmit_info_update_interval, 4U);
    EXPECT_EQ(settings.storage_configuration, "cfg/storage.xml");
}

TEST(Configuration, EveryElementIsRequired) {
    for (const auto& [name, value] : good_settings()) {
        EXPECT_EQ(fault_of(without(good_settings(), name)), "get_element <" + name + "> failed");
    }
    Settings settings;
    EXPECT_EQ(read("<server/>", settings), "into_element <transmit_server> failed");
}

TEST(Configuration, ABadValueIsToldByItsElement) {
    const std::pair<const char*, const char*> bad_values[] = {
        {"port", "70000"},
        {"port", "-1"},
        {"port", ""},
        {"command_port", "http"},
        {"use_user_id", "1"},
        {"group_by_user_id", "True"},
        {"pathname_use_lower", ""},
        {"transmit_info_update_interval", "soon"},
        {"transmit_info_update_interval", "18446744073709551616"},
    };
    for (const auto& [name, value] : bad_values) {
        EXPECT_EQ(fault_of(with(good_settings(), name, value)),
                  "get_element <" + std::string(name) + "> failed")
            << value;
    }
    EXPECT_EQ(fault_of(with(good_settings(), "host", "")), "transmit server host is invalid");
}

TEST(Configuration, WhatStandsBehindAValueIsNotLookedAt) {
    Settings settings;
    ASSERT_EQ(read(with(with(good_settings(), "port", " +8080 or so"), "use_user_id", "false!"),
                   settings),
              "");
    EXPECT_EQ(settings.transmit_port, 8080);
    EXPECT_FALSE(settings.use_user_id);
}

TEST(Configuration, TheIntervalIsKeptWithinOneAndFiveSeconds) {
    EXPECT_EQ(interval_of("0"), 1U);
    EXPECT_EQ(interval_of("1"), 1U);
    EXPECT_EQ(interval_of("5"), 5U);
    EXPECT_EQ(interval_of("6"), 5U);
    EXPECT_EQ(interval_of("18446744073709551615"), 5U);
}

TEST(Configuration, AnEmptySuffixIsTheUsualOne) {
    Settings settings;
    ASSERT_EQ(read(with(good_settings(), "transmit_temp_file_suffix", ""), settings), "");
    EXPECT_EQ(settings.transmit_temp_file_suffix, ".tcp");
}

TEST(Configuration, StoragesStandUnderTheirIds) {
    StorageTable storages;
    const Elements hidden = without(with(good_storage(), "id", "2"), "show");
    ASSERT_EQ(read_list(item(with(good_storage(), "id", "007")) + item(hidden), storages), "");
    ASSERT_EQ(storages.size(), 2U);
    EXPECT_EQ(storages.at(7).id_text, "007");
    EXPECT_EQ(storages.at(7).name, "Archive");
    EXPECT_TRUE(storages.at(7).show);
    EXPECT_EQ(storages.at(7).directory, "/data");
    EXPECT_FALSE(storages.at(2).show);
}

TEST(Configuration, AnEmptyListIsNoFault) {
    StorageTable storages;
    EXPECT_EQ(read_list("", storages), "");
    EXPECT_TRUE(storages.empty());
}

TEST(Configuration, OnlyTheWordTrueShowsAStorage) {
    for (const char* word : {"false", "yes", "1", ""}) {
        StorageTable storages;
        ASSERT_EQ(read_list(item(with(good_storage(), "show", word)), storages), "");
        EXPECT_FALSE(storages.at(7).show) << word;
    }
}

TEST(Configuration, ANumberBelongsToOneStorageOnly) {
    EXPECT_EQ(fault_of_item(good_storage()), "");
    for (const char* again : {"7", "007", " 7 or so"}) {
        StorageTable storages;
        EXPECT_EQ(
            read_list(item(good_storage()) + item(with(good_storage(), "id", again)), storages),
            "storage id is used twice");
    }
}

TEST(Configuration, PortsDifferAndAreNotZero) {
    EXPECT_EQ(fault_of(with(good_settings(), "port", "0")), "get_element <port> failed");
    EXPECT_EQ(fault_of(with(good_settings(), "command_port", "0")),
              "get_element <command_port> failed");
    EXPECT_EQ(fault_of(with(good_settings(), "command_port", "30000")),
              "transmit server ports are equal");
}

// Lines are those of the whole file, also inside an item.
TEST(Configuration, AFaultNamesItsLineAndItsReason) {
    Kestin::Base::Xml xml;
    Settings settings;
    ASSERT_TRUE(
        xml.set_document("<transmit_server>\n<host>h</host>\n\n<port>x</port>\n"
                         "</transmit_server>"));
    configuration::Fault fault = configuration::read_settings(xml, settings);
    ASSERT_TRUE(fault);
    EXPECT_EQ(fault->line, 4);
    EXPECT_EQ(fault->reason, "<port> is \"x\", it must be a number from 1 to 65535");

    StorageTable storages;
    ASSERT_TRUE(
        xml.set_document("<storages>\n<item>\n<id>1</id>\n<name>n</name>\n"
                         "<directory>d</directory>\n</item>\n<item>\n<id>2</id>\n"
                         "<name/>\n</item></storages>"));
    fault = configuration::read_storages(xml, storages);
    ASSERT_TRUE(fault);
    EXPECT_EQ(fault->line, 9);
    EXPECT_EQ(fault->reason, "<name> is \"\", it must be a text that is not empty");
}

TEST(Configuration, AFaultOfOneStorageIsAFaultOfTheList) {
    for (const char* name : {"id", "name", "directory"}) {
        EXPECT_EQ(fault_of_item(without(good_storage(), name)),
                  "get_element <" + std::string(name) + "> failed");
        EXPECT_EQ(fault_of_item(with(good_storage(), name, "")),
                  "storage " + std::string(name) + " is invalid");
    }
    EXPECT_EQ(fault_of_item(with(good_storage(), "id", "4294967296")), "storage id is invalid");
    StorageTable storages;
    EXPECT_EQ(read_list(item(good_storage()) + "<storage/>", storages),
              "into_element <item> failed");
    Kestin::Base::Xml xml;
    ASSERT_TRUE(xml.set_document("<list/>"));
    EXPECT_EQ(words_of(configuration::read_storages(xml, storages)),
              "into_element <storages> failed");
}

TEST(ConfigurationFiles, AMissingFileIsToldWithItsNameAtLevelCritical) {
    const ServedRoot served;
    EXPECT_FALSE(served.service().init(served.root() + "none/"));
    EXPECT_NE(served.run_log().find("Critical src/norvane_transmit_service "
                                    "NorvaneTransmitService::parse_configuration"),
              std::string::npos);
    EXPECT_NE(
        served.run_log().find("load failed, filename:{" + served.root() + "none/cfg/config.xml}"),
        std::string::npos);
}

TEST(ConfigurationFiles, AFaultIsToldInTheRunLogAndLeavesTheServiceStopped) {
    const ServedRoot served;
    EXPECT_FALSE(served.start({.use_user_id = "1"}));
    EXPECT_NE(served.run_log().find("get_element <use_user_id> failed"), std::string::npos);
    EXPECT_NE(
        served.run_log().find("tcp transmit service init failure: parse configuration failure"),
        std::string::npos);
    EXPECT_FALSE(served.service().is_storage_valid(1));
    EXPECT_TRUE(served.start({}));
    EXPECT_TRUE(served.service().is_storage_valid(1));
}
