#include "QNRescue/error_domain.hpp"
#include "QNRescue/output_state.hpp"
#include "QNRescue/process.hpp"
#include "QNRescue/run_program_main.hpp"
#include "QNRescue/start_options.hpp"

#include <boost/asio/io_context.hpp>

#include <cstdlib>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

// The tool. Returns only for a command line that cannot be parsed; any other run ends the process
// from its worker thread.
int main(int argc, char const ** argv) {
    using namespace qnrescue;

    prepare_process();
    auto [options, description, error] = parse_arguments(argc, argv);
    auto context = std::make_unique<boost::asio::io_context>();
    auto output = make_output_state(context->get_executor(), options);
    std::thread output_thread(&output_str_state::loop, std::ref(*output));

    if (error) {
        output->print_formatted_error(error.get());
        output->quit();
        output_thread.join();
        return GetCode(error.get());
    }

    std::thread([options = std::move(options), description = std::move(description),
                 context = std::move(context), output = std::move(output),
                 output_thread = std::move(output_thread)]() mutable {
        int const status = runProgramMain(options, description, output);
        output->quit();
        output_thread.join();
        std::exit(status);
    }).detach();
    wait_for_process_end();
}
