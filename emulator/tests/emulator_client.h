#ifndef EMULATOR_CLIENT_H
#define EMULATOR_CLIENT_H

#include <string>

#include "kai_emulator.h"
#include "plain_client.h"

/// Speaks to an emulator as a client of the real service would.
class EmulatorClient {
public:
    explicit EmulatorClient(KAIEmulator& emulator, std::string bearerKey = "secret")
        : m_base(emulator.obtainServer().obtainURL("")), m_client(emulator.obtainServer().obtainCAFile()) {
        if (!bearerKey.empty()) {
            m_headers.push_back("Authorization: Bearer " + bearerKey);
        }
    }
    void addHeader(std::string header) { m_headers.push_back(std::move(header)); }

    PlainResponse get(const std::string& path) { return send("GET", path, {}); }
    PlainResponse remove(const std::string& path) { return send("DELETE", path, {}); }
    PlainResponse post(const std::string& path, const std::string& body) { return send("POST", path, body); }
    PlainResponse post(const std::string& path, const KAIEmulatorJson& body) { return post(path, body.dump()); }

    static KAIEmulatorJson parse(const PlainResponse& response) { return KAIEmulatorJson::parse(response.body); }

private:
    PlainResponse send(const std::string& method, const std::string& path, const std::string& body) {
        auto headers = m_headers;
        if (!body.empty()) {
            headers.emplace_back("Content-Type: application/json");
        }
        return m_client.send({.method = method, .url = m_base + path, .headers = headers, .body = body});
    }

    std::string m_base;
    PlainClient m_client;
    std::vector<std::string> m_headers;
};

#endif
