// Names, answers, folders and completion of the program, with stand-ins for the commands.
#include "host/printer.h"
#include "host/text.h"
#include "tests/workspace.h"

#include <nlohmann/json.hpp>
#include <numeric>
#include <unistd.h>

using testing::HasSubstr;

class CommandLineTest : public Workspace
{
protected:
    CommandLineTest()
    {
        install_machine();
        shell("rm etc/xinetd.d/*; mv bin/chkconfig bin/real; cd etc/xinetd.d; "
              "printf 'disable = no\n' | tee in.talkd 'c\x7F\xC2\x9B'");
        write("bin/chkconfig", "#!/bin/sh\n[ \"$3\" != bad ] || exit 1\nexec real \"$@\"\n");
        shell("chmod +x bin/chkconfig");
        std::string services = "打印\t-\nxinetd\t345\n";
        for (const std::string name : {"cups", "on", "bad", "idle", "a-service-with-a-long-name"}) {
            services += name + "\t23\n";
        }
        write("etc/runlevels", services);
        write_conf(R"xml(<info id="1" name="cups" op="3"/><info id="2" name="cups" op="3"/>
            <!-- <info id="6" name="no" op="1"/> --><info id="7" name="打印" op="1" level="35"/>
            <info id="8" name="no" op="1"/><info id="8" name="yes" op="0" level="3"/>
            <info id="13" name="on" op="0" level="3"/><info id="13" name="on" op="03"/>
            <info id="14" name="in.talkd"/><info id="15" name="c&#x7F;&#x9B;"/>
            <info id="9" name="gone" op="0"/><info id="10" name="bad" op="0" level="5"/>
            <info id="11" name="idle" op="2"/>
            <info id="$(touch ran)" name="$(touch ran)" op="1"/>
            <info id="12" name="a-service-with-a-long-name" desc=")xml" +
                   m_description + "\"/>");
    }

    const std::string m_description = std::string(3000, 'x') + "完";
};

TEST_F(CommandLineTest, TakesNamesAndSaysWhatWasNotHandled)
{
    const std::string no_list = ": >etc/runlevels; rm etc/xinetd.d/*; ";
    const std::string bad = "chkconfig --level 23 bad off\n";
    using Text = const char*;
    const std::tuple<std::string, Text, int, Text, Text, std::string> table[] = {
        {"", "optimize_service nosuch cups", 1, "no service 'nosuch' is", "add_service adds one",
         ""},
        {"", "ignore_service off 8", 1, R"("reply":"none")", "'no' and 'yes' have the same id 8",
         ""},
        {"", "ignore_service on yes", 1, "", "'yes' and 'no' have the same id 8", ""},
        {"", "ignore_service on on 99", 1, R"("ids":[13],"names":["on"]})", "", ""},
        {"", "optimize_service idle 9 9 bad", 1,
         R"([{"id":11,"name":"idle","reason":"ignored","message":"it is marked as ignored"},)"
         R"({"id":9,"name":"gone","reason":"not listed","message":"chkconfig does not list it"},)"
         R"({"id":10,"name":"bad","reason":"command failed","message":"command failed; it is )",
         "bad (10) not handled: command failed; it is still on in run levels 23\n", bad},
        {"", "optimize_service in.talkd", 0, R"("ids":[14],"names":["in.talkd"]})", "", ""},
        {"", "optimize_service 2 cups", 0, R"("ids":[2],"names":["cups"]})", "",
         "chkconfig --level 23 cups off\nchkconfig --level 23 cups off\n"},
        {"", "restore_service '\x7F\xC2\x80\xC2\x9Fx'", 1, "", "no service '???x' is", ""},
        {no_list, "restore_service cups 打印 99", 1, R"({"id":99,"reason":"not configured")",
         "打印 (7) not handled: command failed; chkconfig does not list it\n",
         "chkconfig --level 23 cups on\nchkconfig --level 23 cups on\n"
         "chkconfig --level 35 打印 on\n"},
        {no_list, "ls_service", 0, R"("op":1,"level":"on","listed":false}])",
         "does not list them: cups", ""},
        {"rm config/*/*.record; sed -i 's/op=.1./op=\"0\"/g' config/*/*.xml; ", "ls_service", 0,
         "\"services\":[]", "none of the configured services is on", ""},
        {"", "optimize_reg cups", 2, "'cups' is not a number", "usage: optimize_reg ID", ""}};
    for (const auto& [before, call, status, output, message, commands] : table) {
        SCOPED_TRACE(call);
        EXPECT_EQ(shell(before + HOST " " + call +
                        " --json 2>all; code=$?; cat all >&2; "
                        "grep '^chkconfig --level' all >commands; exit $code"),
                  status);
        EXPECT_THAT(read("output"), HasSubstr(output));
        EXPECT_THAT(read("errors"), HasSubstr(message));
        EXPECT_EQ(read("commands"), commands);
    }
}

TEST_F(CommandLineTest, WorksInAFolder)
{
    EXPECT_EQ(shell("mkdir x; cp -R config x; " HOST " set_optimize_sorce 7 -C x"), 0);
    EXPECT_EQ(shell("cp " MODULE " bin/m.so; cd bin; PATH=:/bin:/usr/bin " HOST
                    " -m m.so -C .. -- optimize_service bad"),
              1);
    EXPECT_THAT(read("errors"),
                HasSubstr("\nchkconfig --level 23 bad off\nnot all services were handled (code"));
    EXPECT_EQ(shell("[ $(cd x; " HOST " get_optimize_sorce) = 7 ]"), 0);
    EXPECT_EQ(shell(HOST " -C bin ls_reg && " HOST " -C bin restore_service cups"), 1);
    EXPECT_THAT(read("errors"), HasSubstr("/bin/config/system_operation/conf.xml"));
}

TEST_F(CommandLineTest, RootTakesNoFolderThatOthersCanChange)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "not root";
    }
    const std::pair<const char*, int> table[] = {
        {"chmod 1777 .", 0}, // sticky, as /tmp
        {"mv config/*/conf.xml ..; ln -s ../../../conf.xml config/*/", 0},
        {"chown 1 config/*/conf.xml", 3},
        {"chown 1 config", 3},
        {"chown 1 .", 3},
        {"chmod o+w config/*/conf.xml", 3},
        {"chmod 1666 config/*/conf.xml", 3},
        {"chgrp 1 config/*; chmod g+w config/*", 3},
        {"ln -sf ../../../calls config/*/conf.xml; chmod o+w ../calls", 3},
        {"chown -h 1 ../link; ln -sf ../../../link config/*/conf.xml", 3},
        {"mv config ../theirs/; ln -s ../theirs/config .", 3},
        {"ln -sf conf.xml config/*/conf.xml", 3},
        // A missing configuration could be created.
        {"rm config/*/conf.xml; chown 1 config/*", 3},
        {"rm -r config; chmod 1777 .", 3},
        {"rm -r config; ln -s ../theirs/gone config", 3},
        {"rm config/*/conf.xml", 1}};
    for (const auto& [before, status] : table) {
        SCOPED_TRACE(before);
        EXPECT_EQ(shell("rm -rf x theirs *.lock; mkdir x theirs; chown 1 theirs; cp -R config x; "
                        "cp config/*/conf.xml calls; ln -sf calls link; cd x; " +
                        std::string(before) + "; " HOST " set_optimize_sorce 7"),
                  status);
        EXPECT_THAT(read("errors"), HasSubstr(status == 3 ? "another user can change it" : ""));
        EXPECT_EQ(shell("[ -z \"$(find . -name '*.lock')\" ]"), status == 0 ? 1 : 0);
        EXPECT_NE(shell("cd x; " HOST " set_optimize_sorce 7 -C ."), 3);
    }
}

TEST_F(CommandLineTest, LocksOnlyBesideAConfiguration)
{
    // In another user's folder, the configuration may be a link to any file.
    EXPECT_EQ(shell("cp config/*/conf.xml good; ln -sf ../../other config/*/conf.xml"), 0);
    write("other.lock", "4711 another program");
    const std::pair<std::string, const char*> table[] = {
        {"root:x:0:0\n", "/other:1: cannot parse: "},
        {"<x><kavra_conf/></x>", "/other: not a configuration: the root element is not kavra_conf"},
        {read("good"), ""}};
    for (const auto& [text, error] : table) {
        SCOPED_TRACE(error);
        write("other", text);
        for (const std::string call :
             {"ls_service", "set_optimize_sorce 7", "optimize_service 1"}) {
            EXPECT_EQ(shell(HOST " --json " + call), *error == '\0' ? 0 : 1);
            EXPECT_THAT(read("output"), HasSubstr(*error == '\0' ? "" : R"("none","error":")"));
            EXPECT_THAT(read("errors"), HasSubstr(error));
        }
        EXPECT_EQ(read("other.lock"), "4711 another program");
    }
    EXPECT_EQ(shell("rm other*; " HOST " set_optimize_sorce 7"), 1);
    EXPECT_THAT(read("errors"), HasSubstr("conf.xml: cannot open: No such file or directory"));
    EXPECT_EQ(access("other.lock", F_OK), -1);
}

TEST_F(CommandLineTest, AlignsColumnsAndCompletes)
{
    EXPECT_EQ(shell(HOST " ls_service"), 0);
    EXPECT_THAT(read("output"),
                testing::AllOf(HasSubstr("  c??  "), HasSubstr(m_description + "\n")));
    std::istringstream lines(read("output"));
    for (std::string text; std::getline(lines, text);) {
        EXPECT_EQ(host::display_width(text.substr(0, text.find_first_of("S012", 12))), 40U) << text;
    }
    EXPECT_EQ(shell("cd bin; bash -c 'source " SOURCE_DIR "/packaging/completion.bash; "
                    "COMP_WORDS=(_ -C .. restore_service \"\"); COMP_CWORD=4; _optimize_host; "
                    "printf \"%s \" \"${COMPREPLY[@]}\"'"),
              0);
    EXPECT_EQ(read("output"), "打印 7 ") << read("errors");
    EXPECT_EQ(access("bin/ran", F_OK), -1); // completing runs nothing
}

TEST_F(CommandLineTest, PrintsAnyBytes)
{
    std::string bytes(256, '\0');
    std::iota(bytes.begin(), bytes.end(), '\1'); // NUL is the last
    for (const bool json : {true, false}) {
        char* text = nullptr;
        std::size_t size = 0;
        std::FILE* const out = open_memstream(&text, &size);
        host::Answer answer;
        answer.services = {{{1, bytes, bytes, 0, bytes, false}, true}};
        (json ? host::json_printer(out) : host::table_printer(out, out, false))->answer(answer);
        std::fclose(out);
        EXPECT_EQ(std::count_if(text, text + size, [](char c) { return c >= 0 && c < ' '; }),
                  json ? 2 : 3); // ends of lines
        EXPECT_EQ(nlohmann::json::accept(std::string(text, std::strchr(text, '\n'))), json) << text;
        std::free(text);
    }
}
