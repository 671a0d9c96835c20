#pragma once

#include "tests/support/HttpServer.h"

#include <algorithm>
#include <string>
#include <vector>

/// What servers of tests are sent, and what they send.
namespace kx::test {

using Lines = std::vector<std::string>;

inline std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; });
    return text;
}

inline std::string RequestLine(const std::string& request) {
    return request.substr(0, request.find("\r\n"));
}

inline std::string BodyOf(const std::string& request) {
    size_t end = request.find("\r\n\r\n");
    return end == std::string::npos ? "" : request.substr(end + 4);
}

/// The lines of a request's header that have a name, in lower case, as they came.
inline Lines Fields(const std::string& request, const std::string& name) {
    Lines fields;
    std::string head = request.substr(0, request.find("\r\n\r\n"));
    for (size_t at = head.find("\r\n"); at != std::string::npos;) {
        size_t next = head.find("\r\n", at + 2);
        std::string line = head.substr(at + 2, next == std::string::npos ? next : next - at - 2);
        if (LowerCase(line.substr(0, line.find(':'))) == name) fields.push_back(line);
        at = next;
    }
    return fields;
}

inline std::string Answer(const std::string& status, const std::string& fields, const std::string& body) {
    return "HTTP/1.1 " + status + "\r\n" + fields + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
           body;
}

inline std::string Ok(const std::string& body) {
    return Answer("200 OK", "", body);
}

inline std::string RedirectTo(const std::string& location, const std::string& status = "302 Found") {
    return Answer(status, "Location: " + location + "\r\n", "");
}

using Answers = std::function<std::string(const std::string& request)>;

/// Answers every request of a connection.
inline HttpServer::Handler Each(Answers answers) {
    return [answers = std::move(answers)](HttpServer::Connection& connection) {
        for (std::string request = connection.ReadRequest(); !request.empty(); request = connection.ReadRequest()) {
            if (!connection.Send(answers(request))) return;
        }
    };
}

inline HttpServer::Handler Each(const std::string& answer) {
    return Each([answer](const std::string&) { return answer; });
}

/// Sends these bytes in answer to the first request and closes.
inline HttpServer::Handler Once(const std::string& bytes) {
    return [bytes](HttpServer::Connection& connection) {
        connection.ReadRequest();
        connection.Send(bytes);
    };
}

/// Reads the request and says nothing.
inline void Silent(HttpServer::Connection& connection) {
    connection.ReadRequest();
    connection.WaitForClose();
}

}  // namespace kx::test
