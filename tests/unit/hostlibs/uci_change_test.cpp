// Looking things up and changing them in memory: results, error codes, and what the pointer says afterwards.
#include "uci_fixture.h"

namespace uci_test {
namespace {

constexpr auto COMPLETE = static_cast<unsigned>(uci_ptr::UCI_LOOKUP_COMPLETE);
constexpr auto DONE = static_cast<unsigned>(uci_ptr::UCI_LOOKUP_DONE);
constexpr auto EXTENDED = static_cast<unsigned>(uci_ptr::UCI_LOOKUP_EXTENDED);

class UciChange : public UciTest {
protected:
    void SetUp() override {
        UciTest::SetUp();
        write_config("net-work",
                     "config interface 'lan'\n\toption proto 'dhcp'\n\tlist dns '1.1.1.1'\n\tlist dns '8.8.8.8'\n"
                     "\nconfig zone\n\toption name 'first'\n\nconfig zone\n\toption name 'second'\n"
                     "\nconfig zone 'third'\n\toption name 'third'\n");
    }
};

struct Lookup {
    const char *path;
    bool extended;
    int error;
    unsigned flags;
    uci_type target;
    uci_type last; // UCI_TYPE_UNSPEC: nothing found
};

constexpr Lookup lookups[] = {
    {"net-work", false, UCI_OK, DONE | COMPLETE, UCI_TYPE_PACKAGE, UCI_TYPE_PACKAGE},
    {"net-work.lan", false, UCI_OK, DONE | COMPLETE, UCI_TYPE_SECTION, UCI_TYPE_SECTION},
    {"net-work.lan.proto", false, UCI_OK, DONE | COMPLETE, UCI_TYPE_OPTION, UCI_TYPE_OPTION},
    {"net-work.lan.proto=x", false, UCI_OK, DONE | COMPLETE, UCI_TYPE_OPTION, UCI_TYPE_OPTION},
    {"net-work.lan.mtu", false, UCI_OK, DONE, UCI_TYPE_OPTION, UCI_TYPE_SECTION},
    {"net-work.wan", false, UCI_OK, DONE, UCI_TYPE_SECTION, UCI_TYPE_PACKAGE},
    {"net-work.wan.proto", false, UCI_OK, DONE, UCI_TYPE_OPTION, UCI_TYPE_PACKAGE},
    {"net-work.@zone[0]", true, UCI_OK, DONE | COMPLETE | EXTENDED, UCI_TYPE_SECTION, UCI_TYPE_SECTION},
    {"net-work.@zone[2].name", true, UCI_OK, DONE | COMPLETE | EXTENDED, UCI_TYPE_OPTION, UCI_TYPE_OPTION},
    {"net-work.@zone[3]", true, UCI_OK, DONE | EXTENDED, UCI_TYPE_SECTION, UCI_TYPE_PACKAGE},
    {"net-work.@zone[-3].name", true, UCI_OK, DONE | COMPLETE | EXTENDED, UCI_TYPE_OPTION, UCI_TYPE_OPTION},
    {"net-work.@zone[-4].name", true, UCI_OK, DONE | EXTENDED, UCI_TYPE_OPTION, UCI_TYPE_PACKAGE},
    {"net-work.@rule[0].name", true, UCI_OK, DONE | EXTENDED, UCI_TYPE_OPTION, UCI_TYPE_PACKAGE},
    {"net-work.@zone[99999999999999999999]", true, UCI_OK, DONE | EXTENDED, UCI_TYPE_SECTION, UCI_TYPE_PACKAGE},
    {"net-work.@zone[-99999999999999999999]", true, UCI_OK, DONE | EXTENDED, UCI_TYPE_SECTION, UCI_TYPE_PACKAGE},
    {"net-work.@zone[0]", false, UCI_ERR_INVAL, 0, UCI_TYPE_SECTION, UCI_TYPE_UNSPEC},
    {"net-work.@zone", true, UCI_ERR_INVAL, 0, UCI_TYPE_SECTION, UCI_TYPE_UNSPEC},
    {"net-work.@zone[]", true, UCI_ERR_INVAL, 0, UCI_TYPE_SECTION, UCI_TYPE_UNSPEC},
    {"net-work.@zone[-]", true, UCI_ERR_INVAL, 0, UCI_TYPE_SECTION, UCI_TYPE_UNSPEC},
    {"net-work.@zone[1", true, UCI_ERR_INVAL, 0, UCI_TYPE_SECTION, UCI_TYPE_UNSPEC},
    {"net-work.@zone[1]x", true, UCI_ERR_INVAL, 0, UCI_TYPE_SECTION, UCI_TYPE_UNSPEC},
    {"net-work.@zone[ 1]", true, UCI_ERR_INVAL, 0, UCI_TYPE_SECTION, UCI_TYPE_UNSPEC},
    {"missing", true, UCI_ERR_NOTFOUND, 0, UCI_TYPE_PACKAGE, UCI_TYPE_UNSPEC},
    {"missing.lan.proto", true, UCI_ERR_NOTFOUND, 0, UCI_TYPE_OPTION, UCI_TYPE_UNSPEC},
    {"", true, UCI_ERR_INVAL, 0, UCI_TYPE_PACKAGE, UCI_TYPE_UNSPEC},
    {".", true, UCI_ERR_INVAL, 0, UCI_TYPE_SECTION, UCI_TYPE_UNSPEC},
    {"../net-work", true, UCI_ERR_INVAL, 0, UCI_TYPE_OPTION, UCI_TYPE_UNSPEC},
    {"a/b", true, UCI_ERR_INVAL, 0, UCI_TYPE_PACKAGE, UCI_TYPE_UNSPEC},
    {"net-work.", true, UCI_ERR_INVAL, 0, UCI_TYPE_SECTION, UCI_TYPE_UNSPEC},
    {"net-work.lan.", true, UCI_ERR_INVAL, 0, UCI_TYPE_OPTION, UCI_TYPE_UNSPEC},
    {"net-work..proto", true, UCI_ERR_INVAL, 0, UCI_TYPE_OPTION, UCI_TYPE_UNSPEC},
    {"net-work.la-n", true, UCI_ERR_INVAL, 0, UCI_TYPE_SECTION, UCI_TYPE_UNSPEC},
    {"net-work.lan.pro-to", true, UCI_ERR_INVAL, 0, UCI_TYPE_OPTION, UCI_TYPE_UNSPEC},
    {"net-work.lan.proto.x", true, UCI_ERR_INVAL, 0, UCI_TYPE_OPTION, UCI_TYPE_UNSPEC},
    {"net-work.l\xc3\xa4n", true, UCI_ERR_INVAL, 0, UCI_TYPE_SECTION, UCI_TYPE_UNSPEC},
};

TEST_F(UciChange, lookups) {
    for (const Lookup &row : lookups) {
        const Place place(open(), row.path, row.extended);
        EXPECT_EQ(place.error, row.error) << row.path;
        if (row.error != UCI_OK)
            continue;
        EXPECT_EQ(static_cast<unsigned>(place.ptr.flags), row.flags) << row.path;
        EXPECT_EQ(place.ptr.target, row.target) << row.path;
    }
}

TEST_F(UciChange, a_lookup_finds_the_deepest_that_exists) {
    const Context context = open();
    for (const Lookup &row : lookups) {
        const Place place(context, row.path, row.extended);
        if (row.error == UCI_OK)
            EXPECT_EQ(place.ptr.last->type, row.last) << row.path;
        else
            EXPECT_EQ(place.ptr.last, nullptr) << row.path;
    }
}

TEST_F(UciChange, a_lookup_cuts_its_text) {
    const Context context = open();
    const Place place(context, "net-work.lan.proto=a=b.c");
    EXPECT_STREQ(place.ptr.package, "net-work");
    EXPECT_STREQ(place.ptr.section, "lan");
    EXPECT_STREQ(place.ptr.option, "proto");
    EXPECT_STREQ(place.ptr.value, "a=b.c");
    EXPECT_EQ(Place(context, "net-work.lan").ptr.value, nullptr);
}

TEST_F(UciChange, a_lookup_without_text_uses_the_names_in_the_pointer) {
    const Context context = open();
    uci_ptr ptr = {};
    ptr.package = "net-work";
    ptr.section = "@zone[-1]";
    ptr.option = "name";
    ASSERT_EQ(uci_lookup_ptr(context.get(), &ptr, nullptr, true), UCI_OK);
    ASSERT_NE(ptr.o, nullptr);
    EXPECT_STREQ(ptr.o->v.string, "third");
    ptr.package = nullptr;
    EXPECT_EQ(uci_lookup_ptr(context.get(), &ptr, nullptr, true), UCI_ERR_INVAL);
}

TEST_F(UciChange, values_and_lists) {
    const Context context = open();
    EXPECT_EQ(get(context, "net-work"), "(package)");
    EXPECT_EQ(get(context, "net-work.lan"), "<interface>");
    EXPECT_EQ(get(context, "net-work.lan.proto"), "dhcp");
    EXPECT_EQ(get(context, "net-work.lan.dns"), "[1.1.1.1,8.8.8.8]");
    EXPECT_EQ(get(context, "net-work.@zone[1].name"), "second");
    EXPECT_EQ(get(context, "net-work.@zone[-1].name"), "third");
    EXPECT_EQ(get(context, "net-work.@[0]"), "<interface>");
}

TEST_F(UciChange, load_and_unload) {
    const Context context = open();
    uci_package *package = nullptr;
    ASSERT_EQ(uci_load(context.get(), "net-work", &package), UCI_OK);
    EXPECT_STREQ(package->e.name, "net-work");
    EXPECT_EQ(uci_load(context.get(), "net-work", nullptr), UCI_ERR_DUPLICATE);
    ASSERT_EQ(set(context, "net-work.lan.proto=static"), UCI_OK);
    EXPECT_EQ(uci_unload(context.get(), package), UCI_OK);
    EXPECT_EQ(get(context, "net-work.lan.proto"), "dhcp") << "unsaved changes go with the package";
    EXPECT_EQ(uci_load(context.get(), "missing", &package), UCI_ERR_NOTFOUND);
    EXPECT_EQ(uci_load(context.get(), "a.b", &package), UCI_ERR_INVAL);
    EXPECT_EQ(uci_load(context.get(), nullptr, &package), UCI_ERR_INVAL);
    EXPECT_EQ(uci_load(context.get(), std::string(5000, 'x').c_str(), &package), UCI_ERR_NOTFOUND);
}

TEST_F(UciChange, set_creates_replaces_and_retypes) {
    const Context context = open();
    EXPECT_EQ(set(context, "net-work.lan.proto=static"), UCI_OK);
    EXPECT_EQ(get(context, "net-work.lan.proto"), "static");
    EXPECT_EQ(set(context, "net-work.lan.mtu=1500"), UCI_OK);
    EXPECT_EQ(get(context, "net-work.lan.mtu"), "1500");
    EXPECT_EQ(set(context, "net-work.lan.dns=9.9.9.9"), UCI_OK);
    EXPECT_EQ(get(context, "net-work.lan.dns"), "9.9.9.9") << "a list becomes a string";
    EXPECT_EQ(set(context, "net-work.wan=interface"), UCI_OK);
    EXPECT_EQ(get(context, "net-work.wan"), "<interface>");
    EXPECT_EQ(set(context, "net-work.wan=device"), UCI_OK);
    EXPECT_EQ(get(context, "net-work.wan"), "<device>");
    EXPECT_EQ(set(context, "net-work.@zone[0]=rule"), UCI_OK);
    EXPECT_EQ(get(context, "net-work.@rule[0].name"), "first");
    EXPECT_EQ(set(context, "net-work.@rule[0].name=1st"), UCI_OK);
    ASSERT_EQ(commit(context, "net-work"), UCI_OK);
    EXPECT_EQ(config("net-work"),
              "\nconfig interface 'lan'\n\toption proto 'static'\n\toption dns '9.9.9.9'\n\toption mtu '1500'\n"
              "\nconfig rule\n\toption name '1st'\n\nconfig zone\n\toption name 'second'\n"
              "\nconfig zone 'third'\n\toption name 'third'\n\nconfig device 'wan'\n");
}

TEST_F(UciChange, an_empty_value_deletes) {
    const Context context = open();
    EXPECT_EQ(set(context, "net-work.lan.proto="), UCI_OK);
    EXPECT_EQ(get(context, "net-work.lan.proto"), "(absent)");
    EXPECT_EQ(set(context, "net-work.lan.proto="), UCI_OK);
    EXPECT_EQ(set(context, "net-work.third="), UCI_OK);
    EXPECT_EQ(get(context, "net-work.third"), "(absent)");
    EXPECT_EQ(set(context, "net-work.third="), UCI_OK);
    EXPECT_EQ(set(context, "net-work.@zone[7]="), UCI_OK);
}

TEST_F(UciChange, set_refuses) {
    const Context context = open();
    EXPECT_EQ(set(context, "net-work.wan.proto=dhcp"), UCI_ERR_INVAL) << "no such section";
    EXPECT_EQ(set(context, "net-work.@zone[9].name=x"), UCI_ERR_INVAL);
    EXPECT_EQ(set(context, "net-work.@zone[9]=zone"), UCI_ERR_INVAL);
    EXPECT_EQ(set(context, "net-work=x"), UCI_ERR_INVAL);
    EXPECT_EQ(set(context, "net-work.lan.proto"), UCI_ERR_INVAL) << "no value";
    EXPECT_EQ(set(context, "net-work.wan=two words"), UCI_ERR_INVAL);
    EXPECT_EQ(set(context, "net-work.lan=\x7f"), UCI_ERR_INVAL);
    EXPECT_EQ(set(context, "missing.a.b=c"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(uci_set(context.get(), nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_set(nullptr, nullptr), UCI_ERR_INVAL);
    const std::string before = config("net-work");
    ASSERT_EQ(commit(context, "net-work"), UCI_OK);
    EXPECT_EQ(config("net-work"), before) << "nothing was changed, so nothing is written";
}

TEST_F(UciChange, add_list) {
    const Context context = open();
    EXPECT_EQ(uci_test::add_list(context, "net-work.lan.dns=9.9.9.9"), UCI_OK);
    EXPECT_EQ(get(context, "net-work.lan.dns"), "[1.1.1.1,8.8.8.8,9.9.9.9]");
    EXPECT_EQ(uci_test::add_list(context, "net-work.lan.proto=static"), UCI_OK);
    EXPECT_EQ(get(context, "net-work.lan.proto"), "[dhcp,static]");
    EXPECT_EQ(uci_test::add_list(context, "net-work.lan.ntp=a"), UCI_OK);
    EXPECT_EQ(get(context, "net-work.lan.ntp"), "[a]");
    EXPECT_EQ(uci_test::add_list(context, "net-work.wan.dns=1"), UCI_ERR_INVAL);
    EXPECT_EQ(uci_test::add_list(context, "net-work.lan=1"), UCI_ERR_INVAL);
    EXPECT_EQ(uci_test::add_list(context, "net-work=1"), UCI_ERR_INVAL);
    EXPECT_EQ(uci_test::add_list(context, "net-work.lan.dns"), UCI_ERR_INVAL);
    EXPECT_EQ(uci_test::add_list(context, "missing.lan.dns=1"), UCI_ERR_NOTFOUND);
}

TEST_F(UciChange, delete_option_and_section) {
    const Context context = open();
    EXPECT_EQ(remove(context, "net-work.lan.dns"), UCI_OK);
    EXPECT_EQ(get(context, "net-work.lan.dns"), "(absent)");
    EXPECT_EQ(remove(context, "net-work.lan.dns"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(remove(context, "net-work.@zone[0]"), UCI_OK);
    EXPECT_EQ(get(context, "net-work.@zone[0].name"), "second");
    EXPECT_EQ(remove(context, "net-work.lan"), UCI_OK);
    EXPECT_EQ(get(context, "net-work.lan.proto"), "(absent)");
    EXPECT_EQ(remove(context, "net-work.lan"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(remove(context, "net-work"), UCI_ERR_INVAL);
    EXPECT_EQ(remove(context, "net-work.third.name=third"), UCI_ERR_INVAL);
    EXPECT_EQ(remove(context, "missing.a"), UCI_ERR_NOTFOUND);
    ASSERT_EQ(commit(context, "net-work"), UCI_OK);
    EXPECT_EQ(config("net-work"),
              "\nconfig zone\n\toption name 'second'\n\nconfig zone 'third'\n\toption name 'third'\n");
}

TEST_F(UciChange, the_pointer_stays_usable) {
    const Context context = open();
    Place place(context, "net-work.wan=interface");
    ASSERT_EQ(place.error, UCI_OK);
    EXPECT_FALSE(place.complete());
    ASSERT_EQ(uci_set(context.get(), &place.ptr), UCI_OK);
    EXPECT_TRUE(place.complete());
    ASSERT_NE(place.ptr.s, nullptr);
    EXPECT_EQ(place.ptr.last, &place.ptr.s->e);
    place.ptr.option = "proto";
    place.ptr.value = "dhcp";
    ASSERT_EQ(uci_set(context.get(), &place.ptr), UCI_OK);
    ASSERT_NE(place.ptr.o, nullptr);
    EXPECT_STREQ(place.ptr.o->v.string, "dhcp");
    place.ptr.value = nullptr;
    ASSERT_EQ(uci_delete(context.get(), &place.ptr), UCI_OK);
    EXPECT_EQ(place.ptr.o, nullptr);
    EXPECT_EQ(uci_delete(context.get(), &place.ptr), UCI_ERR_NOTFOUND);
    place.ptr.option = "not allowed";
    place.ptr.value = "x";
    EXPECT_EQ(uci_set(context.get(), &place.ptr), UCI_ERR_INVAL);
}

TEST_F(UciChange, changes_without_a_lookup_look_up_themselves) {
    const Context context = open();
    uci_ptr ptr = {};
    ptr.package = "net-work";
    ptr.section = "lan";
    ptr.option = "proto";
    ptr.value = "static";
    ASSERT_EQ(uci_set(context.get(), &ptr), UCI_OK);
    EXPECT_EQ(get(context, "net-work.lan.proto"), "static");
}

TEST_F(UciChange, null_arguments_are_refused) {
    const Context context = open();
    uci_ptr ptr = {};
    char path[] = "net-work";
    EXPECT_EQ(uci_lookup_ptr(nullptr, &ptr, path, true), UCI_ERR_INVAL);
    EXPECT_EQ(uci_lookup_ptr(context.get(), nullptr, path, true), UCI_ERR_INVAL);
    EXPECT_EQ(uci_set_confdir(context.get(), nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_set_savedir(nullptr, "/tmp"), UCI_ERR_INVAL);
    EXPECT_EQ(uci_save(context.get(), nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_unload(context.get(), nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_commit(context.get(), nullptr, false), UCI_ERR_INVAL);
    uci_free_context(nullptr);
}

} // namespace
} // namespace uci_test
