// The APN database file, its lookup, and the SIMs that are known by their IMSI.
#include "vendor/apn_database.h"

#include <string>

#include <gtest/gtest.h>

#include "support/aborts.h"
#include "support/child.h"
#include "support/files.h"
#include "support/json_text.h"
#include "support/short_memory.h"

namespace {

const std::string PREFIX = "module.exports.apnData =";

struct Loaded {
    int result;
    std::string text; // of the object; empty for none
    bool operator==(const Loaded &) const = default;
};
void PrintTo(const Loaded &loaded, std::ostream *out) {
    *out << loaded.result << " " << loaded.text;
}

// Loads into a pointer that holds an empty object, as the command line does.
Loaded load(const std::string &path) {
    json_object *database = json_object_new_object();
    const int result = parse_apn_database(path.c_str(), &database);
    const Loaded loaded = {result, database == nullptr ? "" : plain_json(database)};
    json_object_put(database);
    return loaded;
}

Loaded load_content(const std::string &content) {
    const ScratchDirectory scratch;
    write_file(scratch / "apn-config.js", content);
    return load(scratch / "apn-config.js");
}

std::string entries_of(const std::string &database, const char *mcc, const char *mnc, int expected_count) {
    const Json parsed = parse_json(database);
    const Json entries(json_object_new_array());
    EXPECT_EQ(find_apns(parsed.get(), mcc, mnc, entries.get()), expected_count) << database;
    return plain_json(entries.get());
}

ModemModel model_with_imsi(const std::string &imsi) {
    ModemModel model = {};
    replace_modem_struct(&model, "1-1.2");
    std::filesystem::create_directory("/tmp/modem.1-1.2");
    write_file("/tmp/modem.1-1.2/cimi", imsi);
    return model;
}

TEST(ApnFile, the_json_text_begins_behind_24_bytes) {
    ASSERT_EQ(PREFIX.size(), 24u);
    EXPECT_EQ(load_content(PREFIX + R"({"apns":{"apn":[]}})"), (Loaded{0, R"({"apns":{"apn":[]}})"}));
    EXPECT_EQ(load_content(std::string(24, '\0') + " {}"), (Loaded{0, "{}"}));
}

TEST(ApnFile, what_follows_the_json_text_does_not_matter) {
    EXPECT_EQ(load_content(PREFIX + " {};\nmore script\n"), (Loaded{0, "{}"}));
}

TEST(ApnFile, exactly_24_bytes_are_an_empty_text) {
    EXPECT_EQ(load_content(PREFIX), (Loaded{0, ""}));
}

TEST(ApnFile, fewer_than_24_bytes_fail_and_change_nothing) {
    EXPECT_EQ(load_content(PREFIX.substr(1)), (Loaded{-1, "{}"}));
    EXPECT_EQ(load_content(""), (Loaded{-1, "{}"}));
}

TEST(ApnFile, a_text_that_does_not_parse_loads_as_nothing) {
    for (const char *text : {"{", "{\"apns\":", "not json", "\xff\xfe", "{\"a\":1", "]"}) {
        EXPECT_EQ(load_content(PREFIX + text), (Loaded{0, ""})) << text;
    }
    EXPECT_EQ(load_content(PREFIX + std::string(10000, '[')), (Loaded{0, ""}));
    EXPECT_EQ(load_content(PREFIX + std::string("\0{}", 3)), (Loaded{0, ""}));
}

TEST(ApnFile, no_file_and_no_plain_file) {
    const ScratchDirectory scratch;
    EXPECT_EQ(load(scratch / "missing.js"), (Loaded{-1, "{}"}));
    EXPECT_EQ(load(scratch.path()), (Loaded{-1, "{}"}));
}

TEST(ApnFile, one_that_needs_more_memory_than_there_is_fails_and_changes_nothing) {
    const ScratchDirectory scratch;
    write_file(scratch / "apn-config.js", PREFIX + "{\"apns\":{}}");
    json_object *database = json_object_new_object();
    {
        const ShortMemory none;
        EXPECT_EQ(parse_apn_database((scratch / "apn-config.js").c_str(), &database), -1);
    }
    EXPECT_EQ(plain_json(database), "{}");
    json_object_put(database);
}

TEST(ApnFile, loading_into_nothing) {
    const ScratchDirectory scratch;
    write_file(scratch / "apn-config.js", PREFIX + "{}");
    json_object *database = nullptr;
    EXPECT_EQ(parse_apn_database((scratch / "apn-config.js").c_str(), &database), 0);
    EXPECT_EQ(plain_json(database), "{}");
    json_object_put(database);
}

TEST(ApnFile, no_name_aborts) {
    json_object *database = nullptr;
    EXPECT_ABORT(parse_apn_database(nullptr, &database));
}

TEST(ApnFile, leaves_no_descriptor_open) {
    const int before = open_descriptors();
    load_content(PREFIX + "{}");
    load_content("short");
    EXPECT_EQ(open_descriptors(), before);
}

TEST(ApnLookup, both_codes_must_be_the_same) {
    const std::string database = R"({"apns":{"apn":[
        {"-mcc":"262","-mnc":"02","-apn":"a","-type":"default","other":1},
        {"-mcc":"262","-mnc":"020","-apn":"b"},
        {"-mcc":"262","-apn":"c"},
        {"-mnc":"02","-apn":"d"},
        {"-mcc":"262","-mnc":"02","-apn":"e"}]}})";
    EXPECT_EQ(entries_of(database, "262", "02", 2),
              R"([{"-mcc":"262","-mnc":"02","-apn":"a","-type":"default","other":1},)"
              R"({"-mcc":"262","-mnc":"02","-apn":"e"}])");
    EXPECT_EQ(entries_of(database, "262", "020", 1), R"([{"-mcc":"262","-mnc":"020","-apn":"b"}])");
    EXPECT_EQ(entries_of(database, "26", "02", 0), "[]");
}

TEST(ApnLookup, entries_of_other_types_are_passed_over) {
    EXPECT_EQ(entries_of(R"({"apns":{"apn":[null,7,"x",[],{"-mcc":262,"-mnc":2},{"-mcc":null,"-mnc":"02"}]}})", "262",
                         "02", 0),
              "[]");
}

TEST(ApnLookup, a_database_without_the_list) {
    for (const char *database : {"{}", "[]", "7", R"({"apns":7})", R"({"apns":{"apn":"x"}})", R"({"apn":[]})"}) {
        entries_of(database, "262", "02", -1);
    }
    EXPECT_EQ(find_apns(nullptr, "262", "02", nullptr), -1);
}

TEST(CustomApn, every_row) {
    const std::pair<const char *, const char *> expected[] = {
        {"901460000000017", "globalnet"},   {"228620000000017", "globalnet"},   {"222013068600017", "globalnet"},
        {"222013090000017", "globalnet"},   {"204043896210017", "globalnet"},   {"204046999000017", "globalnet"},
        {"234030208200017", "globalnet"},   {"234553300000017", "globalnet"},   {"400029999100017", "globalnet"},
        {"424020075900017", "globalnet"},   {"515030202900017", "globalnet"},   {"730013010000017", "globalnet"},
        {"311480000000017", "vzwinternet"}, {"311270000000017", "vzwinternet"},
    };
    for (const auto &[imsi, apn] : expected) {
        EXPECT_STREQ(custom_apn(imsi), apn) << imsi;
    }
}

TEST(CustomApn, the_whole_prefix_counts) {
    EXPECT_STREQ(custom_apn("2220130686"), "globalnet");
    EXPECT_EQ(custom_apn("222013068700017"), nullptr);
    EXPECT_EQ(custom_apn("222013068"), nullptr);
    EXPECT_EQ(custom_apn("20404389620"), nullptr);
    EXPECT_EQ(custom_apn("311481000000017"), nullptr);
    EXPECT_EQ(custom_apn("031148000000001"), nullptr);
    EXPECT_EQ(custom_apn(""), nullptr);
}

TEST(CustomApns, an_entry_and_a_name) {
    in_child_with_empty({"/tmp"}, [] {
        const ModemModel model = model_with_imsi("311480000000017\n");
        const Json entries(json_object_new_array());
        const Json names(json_object_new_array());
        EXPECT_EQ(get_custom_apns(model, entries.get(), names.get()), 0);
        EXPECT_EQ(plain_json(entries.get()), R"([{"-mcc":"311","-mnc":"480","-apn":"vzwinternet"}])");
        EXPECT_EQ(plain_json(names.get()), R"(["vzwinternet"])");
    });
}

TEST(CustomApns, a_network_code_of_two_digits_has_a_third_behind_it) {
    in_child_with_empty({"/tmp"}, [] {
        const Json entries(json_object_new_array());
        EXPECT_EQ(get_custom_apns(model_with_imsi("901467000000017\n"), entries.get(), nullptr), 0);
        EXPECT_EQ(plain_json(entries.get()), R"([{"-mcc":"901","-mnc":"467","-apn":"globalnet"}])");
    });
}

TEST(CustomApns, either_array_or_none) {
    in_child_with_empty({"/tmp"}, [] {
        const ModemModel model = model_with_imsi("228620000000017\n");
        const Json names(json_object_new_array());
        EXPECT_EQ(get_custom_apns(model, nullptr, names.get()), 0);
        EXPECT_EQ(plain_json(names.get()), R"(["globalnet"])");
        EXPECT_EQ(get_custom_apns(model, nullptr, nullptr), 0);
    });
}

TEST(CustomApns, another_sim_or_none) {
    in_child_with_empty({"/tmp"}, [] {
        const Json entries(json_object_new_array());
        EXPECT_EQ(get_custom_apns(model_with_imsi("262020000000017\n"), entries.get(), entries.get()), -1);
        EXPECT_EQ(get_custom_apns(model_with_imsi(""), entries.get(), entries.get()), -1);
        EXPECT_EQ(plain_json(entries.get()), "[]");
    });
}

} // namespace
