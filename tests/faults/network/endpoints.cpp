#include "endpoints.h"

#include "support/ftp.h"
#include "support/http.h"
#include "support/scriptedserver.h"
#include "virtualtime.h"

#include <charconv>
#include <cstdlib>
#include <utility>

namespace tessaro_com::pkm::voInet::faults {

namespace {

constexpr std::string_view kHop = "/hop";

/// A label that is longer than one can be: no resolver asks the network for it.
constexpr std::size_t kTooLongLabel = 64;

class RefusingEndpoint : public Endpoint {
  public:
    std::uint16_t port() const override { return m_port.port(); }

  private:
    wire::RefusingPort m_port;
};

class SilentEndpoint : public Endpoint {
  public:
    std::uint16_t port() const override { return m_port.port(); }

  private:
    wire::SilentPort m_port;
    VirtualTime::SilentPort m_silence{m_port.port()};
};

class NamelessEndpoint : public Endpoint {
  public:
    std::wstring host() const override { return std::wstring(kTooLongLabel, L'x'); }
    std::uint16_t port() const override { return 80; }
};

EndpointPtr makeAbsent(Whereabouts whereabouts) {
    switch (whereabouts) {
        case Whereabouts::refusing:
            return std::make_unique<RefusingEndpoint>();
        case Whereabouts::silent:
            return std::make_unique<SilentEndpoint>();
        case Whereabouts::nameless:
            return std::make_unique<NamelessEndpoint>();
        default:
            return nullptr;
    }
}

/// How many redirects have led to this target.
int hopsOf(const std::string& target) {
    const auto position = target.rfind(kHop);
    int hops = 0;
    if (position != std::string::npos) {
        const char* const digits = target.data() + position + kHop.size();
        std::from_chars(digits, target.data() + target.size(), hops);
    }
    return hops;
}

class HttpEndpoint : public Endpoint {
  public:
    HttpEndpoint(const HttpFault& fault, ServerPlan plan)
        : m_fault(fault), m_plan(std::move(plan)) {
        m_server.otherwise({[this](wire::Conversation& client) { serve(client); }});
    }

    std::uint16_t port() const override { return m_server.port(); }
    std::size_t connectionCount() const override { return m_server.connectionCount(); }
    std::vector<std::string> finish() override { return m_server.finish(); }

    std::vector<std::string> posted() const override {
        std::vector<std::string> bodies;
        for (const auto& request : m_server.requests()) {
            if (request.method == "POST") {
                bodies.push_back(request.body);
            }
        }
        return bodies;
    }

  private:
    void serve(wire::Conversation& client) {
        try {
            answer(client.receiveRequest(), client);
        } catch (const wire::ConnectionLost&) {
            // Stopped before it asked for anything.
        }
    }

    void answer(const wire::Request& request, wire::Conversation& client) {
        if (request.method == "HEAD") {
            client.send(wire::reply(200));
            return;
        }
        HttpExchange exchange = wellAnswer(m_plan.file, request.header("Range").value_or(""));
        exchange.place = m_plan.place;
        exchange.hops = hopsOf(request.target);
        exchange.hasCredentials = request.header("Authorization").has_value();
        exchange.otherServer = m_plan.otherServer;
        const bool continues = exchange.hops > 0;
        if (!continues) {
            ++m_answers;
        }
        play(isBad(m_plan.phase, m_answers - 1) ? m_fault : httpFaults().front(), exchange, client);
    }

    const HttpFault& m_fault;
    ServerPlan m_plan;
    std::size_t m_answers = 0;  // of the server's thread
    wire::ScriptedServer m_server;
};

class FtpEndpoint : public Endpoint {
  public:
    FtpEndpoint(const FtpFault& fault, ServerPlan plan) : m_fault(fault), m_plan(std::move(plan)) {
        m_server.otherwise([this](std::size_t number) { return session(number); });
    }

    std::uint16_t port() const override { return m_server.port(); }
    std::size_t connectionCount() const override { return m_server.sessionCount(); }
    std::vector<std::string> finish() override { return m_server.control().finish(); }

  private:
    wire::FtpSession session(std::size_t number) {
        FtpTransfer transfer;
        transfer.file = m_plan.file;
        transfer.place = m_plan.place;
        transfer.deadPort = m_dead.port();
        transfer.from = [this] { return askedOffset(); };
        wire::FtpSession session = wellSession(transfer);
        const bool isLogon = number == 0 && !m_plan.spoilsLogon;
        if (!isLogon && isBad(m_plan.phase, number - (m_plan.spoilsLogon ? 0 : 1))) {
            m_fault.spoil(session, transfer);
        }
        return session;
    }

    /// Of the latest RETR.
    std::size_t askedOffset() {
        constexpr std::string_view kRestart = "REST ";
        const auto lines = m_server.control().lines();
        if (lines.size() < 2 || lines[lines.size() - 2].rfind(kRestart, 0) != 0) {
            return 0;
        }
        return std::strtoul(lines[lines.size() - 2].c_str() + kRestart.size(), nullptr, 10);
    }

    const FtpFault& m_fault;
    ServerPlan m_plan;
    wire::RefusingPort m_dead;
    wire::FtpServer m_server;
};

}  // namespace

bool isBad(Phase phase, std::size_t number) {
    switch (phase) {
        case firstAnswer:
            return number == 0;
        case laterAnswers:
            return number > 0;
        default:
            return true;
    }
}

EndpointPtr makeHttpEndpoint(const HttpFault& fault, const ServerPlan& plan) {
    EndpointPtr absent = makeAbsent(fault.whereabouts);
    return absent ? std::move(absent) : std::make_unique<HttpEndpoint>(fault, plan);
}

EndpointPtr makeFtpEndpoint(const FtpFault& fault, const ServerPlan& plan) {
    EndpointPtr absent = makeAbsent(fault.whereabouts);
    return absent ? std::move(absent) : std::make_unique<FtpEndpoint>(fault, plan);
}

}  // namespace tessaro_com::pkm::voInet::faults
