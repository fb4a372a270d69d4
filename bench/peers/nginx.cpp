#include "bench/peers/nginx.h"

#include <vector>

#include "bench/clients/http_client.h"
#include "tests/support/child_process.h"
#include "tests/support/raw_socket.h"

namespace bench {
namespace {

constexpr const char* program = "/usr/sbin/nginx";

void make_certificate(const std::string& folder) {
    support::output_of("/usr/bin/openssl", {"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                                            "ec_paramgen_curve:prime256v1", "-nodes", "-days", "1",
                                            "-subj", "/CN=localhost", "-keyout", folder + "key.pem",
                                            "-out", folder + "certificate.pem"});
    write_settings(folder + "key.pem", support::output_of("/bin/cat", {"cat", folder + "key.pem"}));
}

// The directives are explained on nginx.org/en/docs/dirindex.html.
constexpr const char* settings = R"(
daemon off;
master_process off;
pid {folder}pid;
worker_rlimit_nofile 65536;
events { worker_connections 32768; }
http {
    access_log off;
    sendfile on;
    tcp_nopush on;
    keepalive_requests 1000000000;
    client_max_body_size 0;
    client_body_buffer_size 1m;
    client_body_temp_path {folder}body;
    proxy_temp_path {folder}proxy;
    fastcgi_temp_path {folder}fastcgi;
    uwsgi_temp_path {folder}uwsgi;
    scgi_temp_path {folder}scgi;
    ssl_certificate {folder}certificate.pem;
    ssl_certificate_key {folder}key.pem;
    server {
        listen 127.0.0.1:{port} backlog=4096;
        listen 127.0.0.1:{tls_port} ssl;
        root {root};
        location / { dav_methods PUT; autoindex on; }
        location = /ask { return 200 "yes"; }
    }
}
)";

std::vector<std::string> command(const Workspace& workspace, std::uint16_t port,
                                 std::uint16_t tls_port) {
    const std::string folder = workspace.make_private_folder("nginx");
    make_certificate(folder);
    write_settings(folder + "nginx.conf", settings,
                   {{"{folder}", folder},
                    {"{root}", workspace.root()},
                    {"{port}", std::to_string(port)},
                    {"{tls_port}", std::to_string(tls_port)}});
    return {program, "-p", folder, "-e", folder + "error.log", "-c", folder + "nginx.conf"};
}

}  // namespace

Nginx::Nginx(const Workspace& workspace)
    : port_(support::free_port()),
      tls_port_(support::free_port()),
      process_(command(workspace, port_, tls_port_), port_) {
}

Contender Nginx::contender(const std::string& name, std::uint16_t port, bool over_tls) const {
    const HttpClient::Site site{port, over_tls, "/files/", "/ask"};
    return {name, process_.pid(), true, [site] {
                return std::make_unique<HttpClient>(site);
            }};
}

}  // namespace bench
