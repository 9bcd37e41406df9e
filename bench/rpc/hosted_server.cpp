#include "rpc/hosted_server.h"

#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <boost/make_shared.hpp>

#include <filesystem>
#include <optional>

#include "common/measure.h"
#include "common/server_settings.h"
#include "foundation/logging/log_setup.h"
#include "foundation/text/conversion.h"
#include "host/interface_codec.h"
#include "host/invoker_interface.h"
#include "host/rpc_server.h"
#include "platform/linux/rpc/accounts_file.h"
#include "platform/rpc_runtime.h"
#include "platform/system.h"
#include "programs/tape_server/tape_server.h"
#include "rpc/child_process.h"

namespace bench {

namespace {

void write_account(const std::string& folder) {
    using namespace platform::linux_rpc;
    accounts_file(folder + "/accounts").edit([](account_table& table) {
        account added;
        added.name = account_name;
        added.hash = nt_hash(text::utf8_to_wide(account_password));
        added.administrator = true;
        table.put(added);
    });
}

std::uint32_t serve_text(const platform::rpc_request& request, platform::rpc_reply& reply) {
    static const std::string given = text::wide_to_utf8(long_text());
    if (request.operation == take_text) {
        interface_codec::request_reader reader(request.stub, request.little_endian);
        static_cast<void>(reader.read_string());
        const interface_codec::request_text input = reader.read_string();
        const bool whole = text::wide_to_utf8(input.all()).size() == given.size();
        const InvokeResult result{whole, std::nullopt};
        interface_codec::WriteResultReply(reply.allocate(interface_codec::ResultReplySize(result)), result);
        return platform::rpc_status::ok;
    }
    const std::optional<std::u16string> output = text::utf8_to_wide(given);
    const InvokeResult result{true, std::nullopt};
    interface_codec::WriteDoRpcReply(reply.allocate(interface_codec::DoRpcReplySize(output, result)), output, result);
    return platform::rpc_status::ok;
}

/// As the program's entry sets its process up.
void prepare_process() {
    mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 128 * 1024 * 1024);
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) == 0) {
        files.rlim_cur = files.rlim_max;
        setrlimit(RLIMIT_NOFILE, &files);
    }
}

}  // namespace

std::u16string long_text() {
    std::u16string made;
    while (made.size() < text_units) {
        made += u"<SlotStatus Address=\"4096\" Full=\"true\" PrimaryVolumeTag=\"T10000L8\" Note=\"Band f\u00FCr die Sicherung\" />";
    }
    made.resize(text_units);
    return made;
}

void run_hosted_server(const std::string& folder, const std::string& log) {
    prepare_process();
    std::filesystem::create_directories(folder);
    write_settings(folder + "/settings.reg", "", "");
    static tape_server::assembled_system system({folder + "/settings.reg", true, folder + "/state"});
    write_account(folder);
    if (!log.empty()) {
        logging::initialize_log(u"Bench", {u"-log", text::utf8_to_wide(log)});
    }
    platform::rpc_interface texts;
    texts.uuid = text_uuid;
    texts.major_version = 1;
    texts.operations = 2;
    texts.dispatch = serve_text;
    if (platform::system().rpc_runtime->register_interface(texts, 0, 1234, 0xFFFFFFFF) != platform::rpc_status::ok) {
        fail("The interface of the long texts can't be offered.");
    }
    RpcServerSettings settings;
    settings.port = free_port();
    StartRpcServer(settings, boost::make_shared<ctx::CSvcContext>());
    announce_port(static_cast<std::uint16_t>(settings.port));
    for (;;) {
        pause();
    }
}

}  // namespace bench
