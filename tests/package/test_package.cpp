// The installed package from the outside: libevc-client.so exports only the
// evc namespace under its SONAME, and the examples build against one
// installation in a scratch prefix (CMake package and pkg-config) and encode
// through the installed service without EVC_SERVICE.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <set>
#include <sstream>
#include <string>

#include "common/Process.h"
#include "common/TempDir.h"

namespace {

using evctest::Quote;
using evctest::RunCommand;

TEST(SharedClient, ExportsOnlyTheEvcNamespaceUnderItsSoname)
{
    const evctest::CommandResult soname = RunCommand("objdump -p " + Quote(EVC_CLIENT_LIBRARY));
    ASSERT_EQ(soname.status, 0) << soname.output;
    EXPECT_NE(soname.output.find("SONAME               libevc-client.so.0"), std::string::npos) << soname.output;

    const evctest::CommandResult nm =
        RunCommand("nm -D --defined-only --demangle --format=just-symbols " + Quote(EVC_CLIENT_LIBRARY));
    ASSERT_EQ(nm.status, 0) << nm.output;
    static const char* const allowed[] = {"evc::", "typeinfo for evc::", "typeinfo name for evc::", "vtable for evc::"};
    std::istringstream lines(nm.output);
    std::string name;
    size_t exported = 0;
    while (std::getline(lines, name)) {
        bool ok = false;
        for (const char* prefix : allowed)
            ok = ok || name.rfind(prefix, 0) == 0;
        EXPECT_TRUE(ok) << "exported outside the evc namespace: " << name;
        ++exported;
    }
    // The entry points a host needs are there (the examples below link against them).
    EXPECT_NE(nm.output.find("typeinfo for evc::ServiceError"), std::string::npos) << "exceptions cross the boundary";
    EXPECT_GT(exported, 10u);
}

class InstalledPackage : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        s_prefix = std::make_unique<evctest::TempDir>();
        s_install = RunCommand("cmake --install " + Quote(evctest::BuildPath()) + " --prefix " +
                               Quote(s_prefix->File("prefix")));
    }
    static void TearDownTestSuite() { s_prefix.reset(); }
    void SetUp() override
    {
        if (EVC_SANITIZED)
            GTEST_SKIP() << "the examples are built without the sanitizers the library carries";
        ASSERT_TRUE(s_prefix->Ok());
        ASSERT_EQ(s_install.status, 0) << s_install.output;
    }
    static std::string Prefix() { return s_prefix->File("prefix"); }

    static std::unique_ptr<evctest::TempDir> s_prefix;
    static evctest::CommandResult s_install;
};
std::unique_ptr<evctest::TempDir> InstalledPackage::s_prefix;
evctest::CommandResult InstalledPackage::s_install;

TEST_F(InstalledPackage, PkgConfigPointsIntoThePrefix)
{
    const std::string lib = std::string("/") + EVC_INSTALL_LIBDIR;
    const evctest::CommandResult flags = RunCommand("PKG_CONFIG_PATH=" + Quote(Prefix() + lib + "/pkgconfig") +
                                                    " pkg-config --cflags --libs evc-client evc-plugin");
    ASSERT_EQ(flags.status, 0) << flags.output;
    for (const std::string& part :
         {std::string("/include"), lib + " -levc-client", lib + "/cmake/evc/plugin-exports.map"}) {
        SCOPED_TRACE(part);
        EXPECT_NE(flags.output.find(Prefix() + part), std::string::npos) << flags.output;
    }
    EXPECT_EQ(flags.output.find("/usr/local"), std::string::npos) << flags.output;
    const std::string bin = EVC_INSTALL_BINDIR, data = EVC_INSTALL_DATADIR, man = EVC_INSTALL_MANDIR;
    for (const std::string& file :
         {lib + "/cmake/evc/evcConfig.cmake", lib + "/cmake/evc/EvcPlugin.cmake", lib + "/libevc-client.so.0",
          lib + "/evc/Evc.app/Contents/PlugIns/h264.qv64", bin + "/evc-inspect", data + "/evc/presets/h264-quality.xml",
          man + "/man1/evc-encode.1", man + "/man1/evc-service.1", data + "/bash-completion/completions/evc-encode"}) {
        SCOPED_TRACE(file);
        EXPECT_TRUE(std::filesystem::exists(Prefix() + "/" + file));
    }
    // The build's and the installed host bundle hold the product's plug-ins only.
    for (const std::string& app : {evctest::BuildPath("Evc.app"), Prefix() + "/lib/evc/Evc.app"}) {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(app + "/Contents/PlugIns"))
            names.insert(entry.path().filename().string());
        EXPECT_EQ(names, (std::set<std::string>{"av1.qv64", "h264.qv64", "hevc.qv64", "vp9.qv64"})) << app;
    }
}

TEST_F(InstalledPackage, ExamplesBuildOutOfTreeAndEncodeThroughTheInstalledService)
{
    const struct {
        const char* name;
        const char* configure;
    } rows[] = {
        {"cmake", "-DCMAKE_PREFIX_PATH="},
        {"pkg-config", "-DEVC_EXAMPLES_PKG_CONFIG=ON -DCMAKE_PREFIX_PATH="},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string build = s_prefix->File(std::string("examples-") + row.name);
        const evctest::CommandResult made =
            RunCommand("cmake -S " + Quote(std::string(EVC_SOURCE_DIR) + "/examples") + " -B " + Quote(build) +
                       " -G Ninja " + row.configure + Quote(Prefix()) + " && cmake --build " + Quote(build));
        ASSERT_EQ(made.status, 0) << made.output;
        const evctest::CommandResult run =
            RunCommand("env -u EVC_SERVICE -u EVC_HOST_BUNDLE " + Quote(build + "/example-host") + " " + Quote(build));
        EXPECT_EQ(run.status, 0) << run.output;
        EXPECT_EQ(run.output, "encoded 10 pictures: 10 packets, 2 key, 46080 bytes\n");
    }
}

}  // namespace
