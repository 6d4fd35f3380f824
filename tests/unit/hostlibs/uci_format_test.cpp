// The format of configuration files: what is read, what is refused, and what is written, to the byte.
#include "uci_fixture.h"

#include <string>
#include <sys/stat.h>
#include <vector>

extern "C" {
#include <uci.h> // a second time, as programs do that wrap C headers
unsigned uci_header_count_options(struct uci_package *package, const char **last_name);
}

namespace uci_test {
namespace {

class UciFormat : public UciTest {
protected:
    // What the file becomes when it is read and written again; "error N" where it does not load.
    std::string rewritten(const std::string &text) {
        write_config("pkg", text);
        const Context context = open();
        uci_package *package = nullptr;
        if (const int error = uci_load(context.get(), "pkg", &package); error != UCI_OK)
            return "error " + std::to_string(error);
        EXPECT_EQ(uci_commit(context.get(), &package, true), UCI_OK);
        return config("pkg");
    }
};

struct Reading {
    const char *what;
    const char *text;
    const char *written;
};

constexpr Reading readings[] = {
    {"nothing", "", ""},
    {"only a comment", "# nobody home\n", ""},
    {"package line", "package pkg\n\nconfig a 'b'\n", "\nconfig a 'b'\n"},
    {"no newline at the end", "config a b\n\toption c d", "\nconfig a 'b'\n\toption c 'd'\n"},
    {"unquoted", "config a b\noption c d\nlist e f\n", "\nconfig a 'b'\n\toption c 'd'\n\tlist e 'f'\n"},
    {"single quotes", "config 'a' 'b'\n\toption 'c' 'd e'\n", "\nconfig a 'b'\n\toption c 'd e'\n"},
    {"double quotes", "config \"a\" \"b\"\n\toption \"c\" \"d 'e'\"\n", "\nconfig a 'b'\n\toption c 'd '\\''e'\\'''\n"},
    {"anonymous", "config a\n\toption c d\nconfig a\n", "\nconfig a\n\toption c 'd'\n\nconfig a\n"},
    {"empty name is anonymous", "config a ''\n", "\nconfig a\n"},
    {"comment behind a statement", "config a b # c\n\toption c d#e\n", "\nconfig a 'b'\n\toption c 'd'\n"},
    {"hash within quotes", "config a b\n\toption c '#1'\n\toption d \"#2\"\n",
     "\nconfig a 'b'\n\toption c '#1'\n\toption d '#2'\n"},
    {"joined pieces", "config a b\n\toption c d'e f'\"g h\"i\n", "\nconfig a 'b'\n\toption c 'de fg hi'\n"},
    {"escapes", "config a b\n\toption c d\\ e\\'\\\"\\\\\\#\n", "\nconfig a 'b'\n\toption c 'd e'\\''\"\\#'\n"},
    {"escapes in double quotes", "config a b\n\toption c \"d\\\"e\\\\f\\g\"\n",
     "\nconfig a 'b'\n\toption c 'd\"e\\fg'\n"},
    {"backslash in single quotes", "config a b\n\toption c 'd\\e\\'\n", "\nconfig a 'b'\n\toption c 'd\\e\\'\n"},
    {"newline in single quotes", "config a b\n\toption c 'd\n e'\n", "\nconfig a 'b'\n\toption c 'd\n e'\n"},
    {"newline in double quotes", "config a b\n\toption c \"d\n e\"\n", "\nconfig a 'b'\n\toption c 'd\n e'\n"},
    {"continuation in double quotes", "config a b\n\toption c \"d\\\ne\"\n", "\nconfig a 'b'\n\toption c 'de'\n"},
    {"continuation between words", "config a b\n\toption c \\\n  d\n", "\nconfig a 'b'\n\toption c 'd'\n"},
    {"continuation in a word", "config a b\n\toption c d\\\ne\n", "\nconfig a 'b'\n\toption c 'de'\n"},
    {"statements in a line", "config a b; option c d; list e f\n", "\nconfig a 'b'\n\toption c 'd'\n\tlist e 'f'\n"},
    {"carriage returns", "config a b\r\n\toption c d\r\n", "\nconfig a 'b'\n\toption c 'd'\n"},
    {"option twice: the last", "config a b\n\toption c d\n\toption e f\n\toption c g\n",
     "\nconfig a 'b'\n\toption c 'g'\n\toption e 'f'\n"},
    {"list after option", "config a b\n\toption c d\n\tlist c e\n", "\nconfig a 'b'\n\tlist c 'd'\n\tlist c 'e'\n"},
    {"option after list", "config a b\n\tlist c d\n\tlist c e\n\toption c f\n", "\nconfig a 'b'\n\toption c 'f'\n"},
    {"interleaved lists", "config a b\n\tlist c 1\n\tlist d 2\n\tlist c 3\n",
     "\nconfig a 'b'\n\tlist c '1'\n\tlist c '3'\n\tlist d '2'\n"},
    {"empty option is no option", "config a b\n\toption c ''\n\toption d\n\toption e f\n\toption e ''\n",
     "\nconfig a 'b'\n"},
    {"empty list item", "config a b\n\tlist c ''\n", "\nconfig a 'b'\n\tlist c ''\n"},
    {"section goes on", "config a b\n\toption c d\nconfig a x\nconfig a b\n\toption e f\n",
     "\nconfig a 'b'\n\toption c 'd'\n\toption e 'f'\n\nconfig a 'x'\n"},
    {"type with punctuation", "config a-b.c!@[0] n\n", "\nconfig a-b.c!@[0] 'n'\n"},
    {"type with what means something", "config 'a#b;\"\\' n\n", "\nconfig 'a#b;\"\\' 'n'\n"},
    {"bytes above ASCII", "config a b\n\toption c '\xc3\xa4\xff\x01'\n",
     "\nconfig a 'b'\n\toption c '\xc3\xa4\xff\x01'\n"},
};

TEST_F(UciFormat, reads_and_writes_every_construct) {
    for (const Reading &reading : readings) {
        EXPECT_EQ(rewritten(reading.text), reading.written) << reading.what;
        EXPECT_EQ(rewritten(reading.written), reading.written) << reading.what << ", a second time";
    }
}

const std::pair<const char *, std::string> refusals[] = {
    {"unknown statement", "config a b\nopton c d\n"},
    {"option outside a section", "option a b\n"},
    {"list outside a section", "list a b\n"},
    {"config without a type", "config\n"},
    {"empty type", "config '' a\n"},
    {"type with a blank", "config 'a b' c\n"},
    {"type that is not ASCII", "config \xc3\xa4 c\n"},
    {"name with a dash", "config a b-c\n"},
    {"option name with a dot", "config a b\n\toption c.d e\n"},
    {"list name with a dash", "config a b\n\tlist c-d e\n"},
    {"option without a name", "config a b\n\toption\n"},
    {"too many words", "config a b c\n"},
    {"too many values", "config a b\n\toption c d e\n"},
    {"package without a name", "package\n"},
    {"package name with a dot", "package a.b\n"},
    {"open single quote", "config a b\n\toption c 'd\n"},
    {"open double quote", "config a b\n\toption c \"d\n"},
    {"backslash at the end", "config a b\n\toption c d\\"},
    {"two types for a name", "config a b\nconfig c b\n"},
    {"NUL", std::string("config a b\n\toption c d\0e\n", 25)},
    {"NUL in quotes", std::string("config a b\n\toption c 'd\0e'\n", 27)},
};

TEST_F(UciFormat, refuses_what_does_not_parse_and_leaves_it_alone) {
    for (const auto &[what, text] : refusals) {
        EXPECT_EQ(rewritten(text), "error 5") << what;
        EXPECT_EQ(config("pkg"), text) << what;
        EXPECT_EQ(Place(open(), "pkg.a.b").error, UCI_ERR_PARSE) << what;
    }
}

TEST_F(UciFormat, commit_leaves_a_file_alone_that_no_longer_parses) {
    write_config("pkg", "config a b\n");
    const Context context = open();
    ASSERT_EQ(set(context, "pkg.b.c=1"), UCI_OK);
    write_config("pkg", "config a 'b\n");
    EXPECT_EQ(commit(context, "pkg"), UCI_ERR_PARSE);
    EXPECT_EQ(config("pkg"), "config a 'b\n");
    EXPECT_EQ(files_in_confdir(), 1u);
    EXPECT_EQ(get(context, "pkg.b.c"), "1");
}

TEST_F(UciFormat, a_directory_or_pipe_is_no_configuration) {
    std::filesystem::create_directory(config_path("folder"));
    ASSERT_EQ(mkfifo(config_path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(Place(open(), "folder").error, UCI_ERR_IO);
    EXPECT_EQ(Place(open(), "pipe").error, UCI_ERR_IO);
}

std::vector<std::string> hard_values() {
    std::vector<std::string> values = {
        "'",  "''", "a'b", "\\", "\\'",  "\"", "a\nb", "\n",   "a\n\tlist x 'y'\n", "#", ";", " ",
        "\t", "=",  "a=b", ".",  "$(x)", "`",  "\r\n", "\x7f", "\xff\xfe"};
    values.push_back(std::string(1 << 20, 'x'));
    values.push_back(std::string(70000, '\''));
    std::string every_byte;
    for (int byte = 1; byte < 256; byte++)
        every_byte += static_cast<char>(byte);
    values.push_back(every_byte);
    return values;
}

TEST_F(UciFormat, values_survive_the_file) {
    for (const std::string &value : hard_values()) {
        write_config("pkg", "config a b\n");
        const Context writer = open();
        ASSERT_EQ(set(writer, "pkg.b.c=" + value), UCI_OK);
        ASSERT_EQ(add_list(writer, "pkg.b.d=" + value), UCI_OK);
        ASSERT_EQ(commit(writer, "pkg"), UCI_OK);
        EXPECT_EQ(delta("pkg"), "");
        EXPECT_EQ(get(writer, "pkg.b.c"), value);
        EXPECT_EQ(get(open(), "pkg.b.c"), value);
        EXPECT_EQ(get(open(), "pkg.b.d"), "[" + value + "]");
    }
}

TEST_F(UciFormat, values_survive_the_delta_file) {
    for (const std::string &value : hard_values()) {
        write_config("pkg", "config a b\n");
        const Context writer = open();
        ASSERT_EQ(set(writer, "pkg.b.c=" + value), UCI_OK);
        ASSERT_EQ(add_list(writer, "pkg.b.d=" + value), UCI_OK);
        ASSERT_EQ(save(writer, "pkg"), UCI_OK);
        EXPECT_EQ(config("pkg"), "config a b\n");
        const Context reader = open();
        EXPECT_EQ(get(reader, "pkg.b.c"), value);
        EXPECT_EQ(get(reader, "pkg.b.d"), "[" + value + "]");
        ASSERT_EQ(commit(reader, "pkg"), UCI_OK);
    }
}

TEST_F(UciFormat, delta_records) {
    write_config("pkg", "config a 'b'\n\toption gone '1'\n\tlist l '1'\n\nconfig z\n");
    const Context context = open();
    ASSERT_EQ(set(context, "pkg.b.c=it's"), UCI_OK);
    ASSERT_EQ(set(context, "pkg.n=new"), UCI_OK);
    ASSERT_EQ(remove(context, "pkg.b.gone"), UCI_OK);
    ASSERT_EQ(add_list(context, "pkg.b.l=2"), UCI_OK);
    ASSERT_EQ(remove(context, "pkg.@z[0]"), UCI_OK);
    ASSERT_EQ(save(context, "pkg"), UCI_OK);
    EXPECT_EQ(delta("pkg"), "pkg.b.c='it'\\''s'\npkg.n='new'\n-pkg.b.gone\n|pkg.b.l='2'\n-pkg.cfg02b61f\n");
}

TEST_F(UciFormat, delta_records_of_others_are_applied) {
    write_config("pkg", "config a 'b'\n\toption o '1'\n\tlist l '1'\n\tlist l '2'\n\nconfig a 'x'\n");
    write_delta("pkg", "+pkg.cfg03abcd='rule'\npkg.cfg03abcd.p='q'\n~pkg.b.l='1'\n@pkg.b.o='renamed'\n^pkg.x='0'\n");
    const Context context = open();
    EXPECT_EQ(get(context, "pkg.@rule[0].p"), "q");
    ASSERT_EQ(commit(context, "pkg"), UCI_OK);
    EXPECT_EQ(config("pkg"), "\nconfig a 'x'\n\nconfig a 'b'\n\toption renamed '1'\n\tlist l '2'\n\nconfig rule\n"
                             "\toption p 'q'\n");
}

const std::string senseless_records[] = {"garbage",
                                         "-",
                                         "=",
                                         "..=",
                                         ".b.c='1'",
                                         "other.b.c='1'",
                                         "pkg='1'",
                                         "pkg.missing.c='1'",
                                         "-pkg.missing",
                                         "-pkg.b.nothing",
                                         "-pkg.b.c='0'",
                                         "pkg.b.d-e='1'",
                                         "pkg.d-e='x'",
                                         "pkg.b='two words'",
                                         "pkg.b.c",
                                         "|pkg.b='1'",
                                         "+pkg.b='a'",
                                         "+pkg.new='two words'",
                                         "^pkg.b='x'",
                                         "^pkg.b.c='1'",
                                         "@pkg.b='not allowed'",
                                         "@pkg.b='z'",
                                         "~pkg.b.c='1'",
                                         "~pkg.b.missing='1'",
                                         "pkg.b.c='1' trailing",
                                         "a b c d e",
                                         std::string("pkg.b.c='1\0'", 12),
                                         std::string("\0", 1)};

TEST_F(UciFormat, delta_records_that_make_no_sense_are_passed_over) {
    for (const std::string &record : senseless_records) {
        write_config("pkg", "config a 'b'\n\toption c '0'\nconfig a 'z'\n");
        write_delta("pkg", record + "\npkg.b.good='1'\n");
        ASSERT_EQ(commit(open(), "pkg"), UCI_OK) << record;
        EXPECT_EQ(config("pkg"), "\nconfig a 'b'\n\toption c '0'\n\toption good '1'\n\nconfig a 'z'\n") << record;
        EXPECT_EQ(delta("pkg"), "");
    }
}

TEST_F(UciFormat, anonymous_sections_have_stable_names) {
    write_config("pkg", "config defaults\nconfig zone\nconfig zone\nconfig x named\nconfig rule\n");
    const Context context = open();
    EXPECT_EQ(get(context, "pkg.cfg01e63d"), "<defaults>");
    EXPECT_EQ(get(context, "pkg.cfg02dc81"), "<zone>");
    EXPECT_EQ(get(context, "pkg.cfg03dc81"), "<zone>");
    EXPECT_EQ(get(context, "pkg.cfg0592bd"), "<rule>");
    const Place zone(context, "pkg.@zone[1]");
    ASSERT_TRUE(zone.complete());
    EXPECT_TRUE(zone.ptr.s->anonymous);
    EXPECT_STREQ(zone.ptr.s->e.name, "cfg03dc81");
}

TEST_F(UciFormat, a_given_name_that_looks_made_up_stays_with_its_section) {
    write_config("pkg", "config zone\n\toption o 'made up'\nconfig zone 'cfg01dc81'\n\toption o 'given'\n");
    const Context context = open();
    EXPECT_EQ(get(context, "pkg.cfg01dc81.o"), "given");
    EXPECT_EQ(get(context, "pkg.@zone[0].o"), "made up");
    ASSERT_EQ(set(context, "pkg.@zone[0].o=changed"), UCI_OK);
    ASSERT_EQ(commit(context, "pkg"), UCI_OK);
    EXPECT_EQ(config("pkg"), "\nconfig zone\n\toption o 'changed'\n\nconfig zone 'cfg01dc81'\n\toption o 'given'\n");
}

TEST_F(UciFormat, the_header_serves_c_as_well) {
    write_config("pkg", "config a b\n\toption c 1\n\toption d 2\nconfig a\n\tlist e 3\n");
    const Context context = open();
    const Place place(context, "pkg");
    ASSERT_EQ(place.error, UCI_OK);
    const char *last = "";
    EXPECT_EQ(uci_header_count_options(place.ptr.p, &last), 3u);
    EXPECT_STREQ(last, "e");
}

} // namespace
} // namespace uci_test
