#include "tests/components/http_server/RawRequests.h"

#include <initializer_list>

namespace quorbel {

namespace {

using namespace std::string_literals;
using Events = CRawRequest::Events;
using Texts = std::initializer_list<std::string>;

/// A request with this first line.
std::string Line(const std::string& line) {
    return line + "\r\nHost: localhost\r\n\r\n";
}

/// A request with this target.
std::string To(const std::string& target) {
    return Line("GET " + target + " HTTP/1.1");
}

/// A request with these field lines (each with its end) after Host, and what follows its head.
std::string Post(const std::string& fields, const std::string& rest = "") {
    return "POST /p HTTP/1.1\r\nHost: localhost\r\n" + fields + "\r\n" + rest;
}

/// A request with these field lines alone.
std::string Get(const std::string& fields) {
    return "GET / HTTP/1.1\r\n" + fields + "\r\n";
}

std::string Chunked(const std::string& chunks) {
    return Post("Transfer-Encoding: chunked\r\n", chunks);
}

class CTable {
 public:
    void Family(const std::string& name) { m_family = name; }
    void Add(const std::string& bytes, Events events) {
        rows.push_back({m_family, bytes, std::move(events)});
    }
    /// Each is answered with that status, and nothing after it is looked at.
    void Refuse(const std::string& status, Texts requests) {
        for (const std::string& bytes : requests) Add(bytes, {status, CRawRequest::kCloses});
    }
    /// Each reaches the handler as that.
    void Accept(const std::string& reached, Texts requests) {
        for (const std::string& bytes : requests) Add(bytes, {reached});
    }

    std::vector<CRawRequest> rows;

 private:
    std::string m_family;
};

void AddRequestLines(CTable& table) {
    table.Family("request line");
    table.Accept("GET / ", {Line("GET / HTTP/1.1"), "\r\n" + Line("GET / HTTP/1.1")});
    table.Accept("get / ", {Line("get / HTTP/1.1")});
    table.Accept("HEAD / ", {Line("HEAD / HTTP/1.1")});
    table.Accept("!#$%&'*+-.^_`|~Z9 / ", {Line("!#$%&'*+-.^_`|~Z9 / HTTP/1.1")});
    table.Refuse("400", {Line("GET  / HTTP/1.1"),
                         Line("GET /  HTTP/1.1"),
                         Line("GET / HTTP/1.1 "),
                         Line(" GET / HTTP/1.1"),
                         Line("GET\t/ HTTP/1.1"),
                         Line("GET /\tHTTP/1.1"),
                         Line("GET / HTTP/1.1\t"),
                         Line("GET /a b HTTP/1.1"),
                         Line("GET / x HTTP/1.1"),
                         Line("GET /"),
                         Line("GET"),
                         Line("/ HTTP/1.1"),
                         Line("GET  HTTP/1.1"),
                         Line("G@T / HTTP/1.1"),
                         Line("GET: / HTTP/1.1"),
                         Line("G\xc3\x89T / HTTP/1.1"),
                         Line("G\0T / HTTP/1.1"s),
                         Line("\0GET / HTTP/1.1"s),
                         Line("GET\r / HTTP/1.1"),
                         Line("GET /\v HTTP/1.1"),
                         Line("GET / HTTP/1.1\r"),
                         "GET / HTTP/1.1\nHost: localhost\r\n\r\n",
                         "GET / HTTP/1.1x\nHost: localhost\r\n\r\n",
                         "\n" + Line("GET / HTTP/1.1"),
                         "\r" + Line("GET / HTTP/1.1"),
                         "\r\n\r\n" + Line("GET / HTTP/1.1"),
                         "\r\n \r\n" + Line("GET / HTTP/1.1"),
                         "HTTP/1.1 200 OK\r\n\r\n"});
    table.Add("GET / HTTP/1.1", {CRawRequest::kWaits});
    table.Add("GET / HTTP/1.1\r\nHost: localhost\r\n", {CRawRequest::kWaits});
    table.Add("GET / HTTP/1.1\r\nHost: localhost\r\n\r", {CRawRequest::kWaits});

    table.Family("version");
    table.Accept("GET / ", {Line("GET / HTTP/1.2"), Line("GET / HTTP/1.9")});
    table.Refuse("505", {Line("GET / HTTP/2.0"), Line("GET / HTTP/0.9"), Line("GET / HTTP/3.1"),
                         "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"});
    table.Refuse("400", {Line("GET / http/1.1"), Line("GET / HTTP/1"), Line("GET / HTTP/1."),
                         Line("GET / HTTP/1.10"), Line("GET / HTTP/01.1"), Line("GET / HTTP/1,1"),
                         Line("GET / HTTP/+1.1"), Line("GET / HTTPS/1.1"), Line("GET / HTTP 1.1"),
                         Line("GET / HTTP/1.1x"), Line("GET / HTTP/\xd9\xa1.1"), Line("GET / XHTTP/1.1")});
    table.Add("GET /o HTTP/1.0\r\n\r\n", {"GET /o ", CRawRequest::kCloses});
    table.Add("GET /o HTTP/1.0\r\nConnection: Keep-Alive\r\n\r\n", {"GET /o "});
    table.Add("POST /o HTTP/1.0\r\nContent-Length: 2\r\n\r\nhi", {"POST /o hi", CRawRequest::kCloses});
    table.Refuse("400", {"GET / HTTP/1.0\r\nHost: a b\r\n\r\n",
                         "GET / HTTP/1.0\r\nHost: localhost\r\nHost: localhost\r\n\r\n"});
}

void AddTargets(CTable& table) {
    table.Family("target form");
    table.Accept("OPTIONS * ", {Line("OPTIONS * HTTP/1.1"), Line("OPTIONS http://localhost HTTP/1.1"),
                                Line("OPTIONS http://localhost:80 HTTP/1.1")});
    table.Accept("OPTIONS / ", {Line("OPTIONS / HTTP/1.1"), Line("OPTIONS http://localhost/ HTTP/1.1")});
    table.Accept("GET /?a ",
                 {To("http://localhost?a"), To("http://LOCALHOST/?a"), To("HTTP://localhost:1/?a")});
    table.Accept("GET / ", {To("http://localhost"), To("http://localhost:"), To("http://localhost./"),
                            "GET http://localhost/ HTTP/1.1\r\nHost: other.test\r\n\r\n",
                            "GET http://localhost/ HTTP/1.1\r\nHost: *\r\n\r\n"});
    table.Accept("GET /a?b=http://c/ ", {To("/a?b=http://c/")});
    table.Add("GET http://other.test/ HTTP/1.1\r\nHost: localhost\r\n\r\n", {"404"});
    table.Add("CONNECT localhost:80 HTTP/1.1\r\nHost: localhost:80\r\n\r\n", {"CONNECT / "});
    table.Refuse("400", {Line("GET * HTTP/1.1"),
                         Line("OPTIONS ** HTTP/1.1"),
                         Line("OPTIONS *?a HTTP/1.1"),
                         To("a"),
                         To("?a"),
                         To("localhost/"),
                         To("localhost:80"),
                         To("http:/"),
                         To("http:/a"),
                         To("http://"),
                         To("http:///a"),
                         To("http://?a"),
                         To("http://:80/"),
                         To("http://user@localhost/"),
                         To("http://localhost:x/"),
                         To("http://localhost:65536/"),
                         To("http://[::1/"),
                         To("http://local\\host/"),
                         To("http://localhost\\@other.test/"),
                         To("://localhost/"),
                         To("ftp://localhost/"),
                         To("file:///etc/passwd"),
                         To("/#"),
                         To("/a#b"),
                         To("/a?b#c"),
                         To("http://localhost/#a"),
                         To("http://localhost#a"),
                         "GET http://localhost/ HTTP/1.1\r\n\r\n",
                         "GET http://localhost/ HTTP/1.1\r\nHost: a b\r\n\r\n",
                         Line("CONNECT / HTTP/1.1"),
                         Line("CONNECT localhost HTTP/1.1"),
                         Line("CONNECT localhost: HTTP/1.1"),
                         Line("CONNECT localhost:80/ HTTP/1.1"),
                         Line("CONNECT http://localhost:80/ HTTP/1.1"),
                         Line("CONNECT a@localhost:80 HTTP/1.1")});

    table.Family("path");
    table.Accept("GET /b ", {To("/b"), To("/a/../b"), To("/./b"), To("/a/%2e%2E/b"), To("/a\\..\\b"),
                             To("/a/.%2e/b"), To("http://localhost/a/../b")});
    table.Accept("GET /a/b ", {To("/a\\b"), To("/a%5cb"), To("/a%2Fb"), To("/%61/b"), To("/a/c/../b")});
    table.Accept("GET /%252e%252e/a ", {To("/%252e%252e/a")});
    table.Accept("GET /%2Fa ", {To("//a"), To("/\\a"), To("/%2fa"), To("http://localhost//a")});
    table.Accept("GET /%2F/a ", {To("///a")});
    table.Accept("GET /a//b/ ", {To("/a//b/")});
    table.Accept("GET /a/ ", {To("/a/."), To("/a/b/.."), To("/a/")});
    table.Accept("GET /.../..a/a.. ", {To("/.../..a/a..")});
    table.Accept("GET /%C3%A9%20%25%22%7C%3B%2B~ ", {To("/\xc3\xa9%20%25\"|;+~")});
    table.Accept("GET /%3Fa%23b ", {To("/%3fa%23b")});
    table.Refuse("400", {To("/.."),
                         To("/../a"),
                         To("/a/../../b"),
                         To("/%2e%2e/a"),
                         To("/..%2fa"),
                         To("/..\\a"),
                         To("/%2e%2e%5ca"),
                         To("\\a"),
                         To("http://localhost/../a"),
                         To("/a%"),
                         To("/a%2"),
                         To("/%zz"),
                         To("/% 41"),
                         To("/%u0041"),
                         To("/a%00b"),
                         To("/a\0b"s),
                         To("/a%0d%0ab"),
                         To("/a%7f"),
                         To("/a\x7f"),
                         To("/a%c2%85"),
                         To("/a\x01"),
                         To("/\xff"),
                         To("/%ff"),
                         To("/\xc0\xaf"),
                         To("/%c0%ae%c0%ae/a"),
                         To("/\xed\xa0\x80"),
                         To("/%f4%90%80%80")});

    table.Family("query");
    table.Accept("GET /a?b=c&d=%20+e ", {To("/a?b=c&d=%20+e")});
    table.Accept("GET /a??b/../c ", {To("/a??b/../c")});
    table.Accept("GET /a ", {To("/a?")});
    table.Accept("GET /a?%C3%A9%7C%22%5C%FF%5B%5D ", {To("/a?\xc3\xa9|\"\\\xff[]")});
    table.Accept("GET /a?%00%2e%252e ", {To("/a?%00%2e%252e")});
    table.Refuse("400", {To("/a?%"), To("/a?b=100%"), To("/a?%4"), To("/a?%zz"), To("/a?\x7f"), To("/a?\0"s),
                         To("/a?b\rc"), To("/a?\x01")});
}

void AddHosts(CTable& table) {
    table.Family("host");
    table.Accept("GET / ", {Get("Host: localhost\r\n"), Get("HOST:LocalHost:8080\r\n"),
                            Get("Host: localhost:\r\n"), Get("Host: localhost.\t\r\n"),
                            Get("Host: localhost:65535\r\n"), Get("X: y\r\nhost: localhost\r\n")});
    for (const char* name : {"other.test", "[::2]", "[::ffff:1.2.3.4]:80", "10.0.0.1", "a%41", "a,b;c=d"}) {
        table.Add(Get("Host: "s + name + "\r\n"), {"404"});
    }
    table.Refuse("400", {Get(""),
                         Get("X: y\r\n"),
                         Get("Host:\r\n"),
                         Get("Host: \t\r\n"),
                         Get("Host: :80\r\n"),
                         Get("Host: localhost\r\nHost: localhost\r\n"),
                         Get("Host: localhost\r\nX: y\r\nhOST: other.test\r\n"),
                         Get("Host: localhost\r\nHost:\r\n"),
                         Get("Host: localhost, localhost\r\n"),
                         Get("Host: localhost other.test\r\n"),
                         Get("Host: localhost:80:80\r\n"),
                         Get("Host: localhost:+80\r\n"),
                         Get("Host: localhost:65536\r\n"),
                         Get("Host: localhost:99999999999999999999\r\n"),
                         Get("Host: localhost:8o\r\n"),
                         Get("Host: localhost: 80\r\n"),
                         Get("Host: a@localhost\r\n"),
                         Get("Host: localhost/\r\n"),
                         Get("Host: localhost?\r\n"),
                         Get("Host: localhost#\r\n"),
                         Get("Host: http://localhost\r\n"),
                         Get("Host: local\\host\r\n"),
                         Get("Host: a%zz\r\n"),
                         Get("Host: a%4\r\n"),
                         Get("Host: \"localhost\"\r\n"),
                         Get("Host: l\xc3\xb6s\r\n"),
                         Get("Host: [::1\r\n"),
                         Get("Host: ::1\r\n"),
                         Get("Host: []\r\n"),
                         Get("Host: [::1]x\r\n"),
                         Get("Host: [::1]:x\r\n"),
                         Get("Host: [1.2.3.4]\r\n"),
                         Get("Host: [::g]\r\n"),
                         Get("Host: [::1%25lo]\r\n"),
                         Get("Host: <localhost>\r\n"),
                         Get("Host : localhost\r\n"),
                         Get("Host: localhost\0\r\n"s)});
}

void AddFields(CTable& table) {
    table.Family("field syntax");
    table.Accept("POST /p ", {Post("X:\r\n"), Post("X: \t \r\n"), Post("X:a\tb  c\r\n"),
                              Post("X: \x80\xff\r\n"), Post("!#$%&'*+-.^_`|~9aZ: :\r\n"),
                              Post("X: a\r\nx: b\r\nX:\r\n"), Post("Cookie: a=b\r\nCookie: c=d\r\n")});
    table.Refuse(
        "400",
        {Post("X : a\r\n"), Post("X\t: a\r\n"), Post(" X: a\r\n"), Post("\tX: a\r\n"), Post("X\r\n"),
         Post(": a\r\n"), Post("X Y: a\r\n"), Post("X(: a\r\n"), Post("\"X\": a\r\n"), Post("X\0: a\r\n"s),
         Post("X\x7f: a\r\n"), Post("X\xc3\xa9: a\r\n"), Post("X@: a\r\n"), Post("X: a\0b\r\n"s),
         Post("X: a\vb\r\n"), Post("X: \x01\r\n"), Post("X: \x7f\r\n"), Post("X: a\rb\r\n"),
         Post("X: a\r\r\n"), Post("X: a\nY: b\r\n"), Post("X: a\n"), Post("\rX: a\r\n"), Post("X\r: a\r\n"),
         Post("X: \x1b[0m\r\n"),
         // Folded lines.
         Post("X: a\r\n b\r\n"), Post("X: a\r\n\tb\r\n"), Post("X:\r\n \r\n"), Post("X: a\r\n \r\n"),
         "GET / HTTP/1.1\r\n Host: localhost\r\n\r\n", "GET / HTTP/1.1\r\nHost:\r\n localhost\r\n\r\n",
         // Line ends that others may take for one.
         "GET / HTTP/1.1\r\nHost: localhost\r\n\n", "GET / HTTP/1.1\r\nHost: localhost\n\n",
         "GET / HTTP/1.1\r\nHost: localhost\n\r\n", "GET / HTTP/1.1\nHost: localhost\n\n",
         "GET / HTTP/1.1\r\nHost: localhost\r\n\r\r\n\r\n", "GET / HTTP/1.1\rHost: localhost\r\r\n\r\n"});

    table.Family("connection");
    table.Accept("POST /p ", {Post("Connection: keep-alive\r\n"), Post("Connection: x, y,,\r\n"),
                              Post("Connection: closed\r\n"), Post("Connection: Host, Content-Length\r\n"),
                              Post("Connection: Upgrade\r\nUpgrade: h2c\r\n")});
    for (const char* fields : {"Connection: close\r\n", "connection: x ,CLOSE\r\n",
                               "Connection: keep-alive\r\nConnection: close\r\n"}) {
        table.Add(Post(fields), {"POST /p ", CRawRequest::kCloses});
    }
    table.Add("GET / HTTP/1.0\r\nConnection: close, keep-alive\r\n\r\n", {"GET / ", CRawRequest::kCloses});

    table.Family("expect");
    table.Accept("POST /p hi",
                 {Post("Expect: 100-continue\r\nContent-Length: 2\r\n", "hi"),
                  Post("expect: 100-CONTINUE\r\nContent-Length: 2\r\n", "hi"),
                  Post("Expect: 100-continue, 100-continue\r\nContent-Length: 2\r\n", "hi"),
                  Post("Expect: 100-continue\r\nTransfer-Encoding: chunked\r\n", "2\r\nhi\r\n0\r\n\r\n")});
    table.Accept("POST /p ", {Post("Expect: 100-continue\r\n"), Post("Expect:\r\n")});
    table.Refuse("417",
                 {Post("Expect: 200-ok\r\n"), Post("Expect: 100-continue, x\r\n"),
                  Post("Expect: 100-continue;a=b\r\n"), Post("Expect: 100-continue\r\nExpect: x\r\n")});
    table.Refuse("413", {Post("Expect: 100-continue\r\nContent-Length: 1001\r\n")});
}

void AddLengths(CTable& table) {
    table.Family("content-length");
    const auto length = [](const std::string& value, const std::string& body = "hello") {
        return Post("Content-Length:" + value + "\r\n", body);
    };
    table.Accept("POST /p hello", {length(" 5"), length("5"), length("\t 5 \t"), length(" 005"),
                                   length(" " + std::string(30, '0') + "5"),
                                   Post("content-LENGTH: 5\r\nConnection: keep-alive\r\n", "hello")});
    table.Accept("POST /p ", {length(" 0", ""), length(" 0000", ""), Post("")});
    table.Accept("GET / hello", {Get("Host: localhost\r\nContent-Length: 5\r\n") + "hello"});
    table.Accept("POST /p \r\n\r\nX", {length(" 5", "\r\n\r\nX")});
    table.Add(length(" 5", "hell"), {CRawRequest::kWaits});
    table.Refuse("400", {length(""),
                         length(" "),
                         length(" +5"),
                         length(" -5"),
                         length(" -0"),
                         length(" 0x5"),
                         length(" 5.0"),
                         length(" 5e0"),
                         length(" 5, 5"),
                         length(" 5,"),
                         length(" ,5"),
                         length(" 5 5"),
                         length(" 5;"),
                         length(" \"5\""),
                         length(" 5_0"),
                         length(" five"),
                         length(" \xd9\xa5"),
                         length(" 5\0"s),
                         length(" \v5"),
                         length(" 5\x0b"),
                         Post("Content-Length: 5\r\nContent-Length: 5\r\n", "hello"),
                         Post("Content-Length: 5\r\nContent-Length: 6\r\n", "hello"),
                         Post("Content-Length: 5\r\nX: y\r\ncontent-length: 0\r\n", "hello"),
                         Post("Content-Length : 5\r\n", "hello"),
                         Post("Content-Length\r\n", "hello"),
                         Post("Content-Length: 5\r\n Content-Length: 6\r\n", "hello"),
                         Post("Content-Length:\r\n 5\r\n", "hello"),
                         Post("\x0b"
                              "Content-Length: 5\r\n",
                              "hello")});
    table.Refuse(
        "413", {length(" 1001", ""), length(" 99999999999999999999", ""), length(" 18446744073709551621"),
                length(" 4294967301"), length(" 9223372036854775808"), length(" 1" + std::string(40, '0'))});
}

void AddCodings(CTable& table) {
    table.Family("transfer-encoding");
    const std::string chunks = "5\r\nhello\r\n0\r\n\r\n";
    const auto coded = [&chunks](const std::string& value) {
        return Post("Transfer-Encoding:" + value + "\r\n", chunks);
    };
    table.Accept("POST /p hello",
                 {coded(" chunked"), coded("CHUNKED"), coded("\tChunked "), coded(" ,chunked,"),
                  coded(" chunked\r\nTransfer-Encoding:"), coded(" chunked\r\nTE: trailers, gzip")});
    table.Refuse("501", {coded(" gzip, chunked"), coded(" identity, chunked"), coded(" x,chunked"),
                         coded(" gzip\r\nTransfer-Encoding: chunked"), coded(" xchunked, chunked"),
                         coded(" gzip;a=b, chunked")});
    table.Refuse("400",
                 {coded(""),
                  coded(" "),
                  coded(" ,"),
                  coded(" identity"),
                  coded(" gzip"),
                  coded(" xchunked"),
                  coded(" chunkedx"),
                  coded(" x chunked"),
                  coded(" chunked x"),
                  coded(" chunked;a=b"),
                  coded(" chunked;"),
                  coded(" \"chunked\""),
                  coded(" chunked, chunked"),
                  coded(" chunked, identity"),
                  coded(" chunked, gzip"),
                  coded(" gzip, chunked, chunked"),
                  coded(" \x0b"
                        "chunked"),
                  coded(" chunked\x0b"),
                  coded(" \x0c"
                        "chunked"),
                  coded(" chunked\0"s),
                  coded(" \xa0"
                        "chunked"),
                  coded(" chunked\xa0"),
                  coded("\r\n chunked"),
                  coded(" chunked\r\n , identity"),
                  coded(" chunked\r\nTransfer-Encoding: chunked"),
                  coded(" chunked\r\nTransfer-Encoding: identity"),
                  coded(" identity\r\nTransfer-Encoding: x"),
                  coded(" \x7f"
                        "chunked"),
                  coded(" chu\0nked"s),
                  coded(" chun\rked"),
                  coded(" chunked\n"),
                  Post("Transfer-Encoding : chunked\r\n", chunks),
                  Post(" Transfer-Encoding: chunked\r\n", chunks),
                  Post("Transfer-Encoding\x0b: chunked\r\n", chunks),
                  Post("X: y\nTransfer-Encoding: chunked\r\n", chunks),
                  Post("X: y\rTransfer-Encoding: chunked\r\n", chunks),
                  Post("Transfer-Encoding\n: chunked\r\n", chunks),
                  "POST / HTTP/1.0\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n" + chunks});

    table.Family("length and coding");
    table.Refuse("400", {Post("Content-Length: 15\r\nTransfer-Encoding: chunked\r\n", chunks),
                         Post("Transfer-Encoding: chunked\r\nContent-Length: 0\r\n", chunks),
                         Post("Transfer-Encoding: identity\r\nContent-Length: 5\r\n", "hello"),
                         Post("Transfer-Encoding: gzip, chunked\r\nContent-Length: 5\r\n", "hello"),
                         Post("Transfer-Encoding:\r\nContent-Length: 5\r\n", "hello"),
                         Post("Content-Length: 5\r\nX: y\r\ntransfer-ENCODING:chunked\r\n", chunks),
                         Post("Transfer-Encoding: chunked\r\nContent-Length: 99999\r\n", chunks)});
}

void AddChunks(CTable& table) {
    table.Family("chunk");
    table.Accept("POST /p hello",
                 {Chunked("5\r\nhello\r\n0\r\n\r\n"), Chunked("1\r\nh\r\n4\r\nello\r\n0\r\n\r\n"),
                  Chunked("0005\r\nhello\r\n000\r\n\r\n"), Chunked("0000000000000005\r\nhello\r\n0\r\n\r\n"),
                  Chunked("5;a\r\nhello\r\n0;b=c\r\n\r\n"),
                  Chunked("5 \t;\ta = \"b;\\\"\\\\\xff\" ;c=d\r\nhello\r\n0\r\n\r\n"),
                  Chunked("5;a=\"\"\r\nhello\r\n0\r\n\r\n")});
    table.Accept("POST /p abcdefghijklmnopqrstuvwxyz",
                 {Chunked("1a\r\nabcdefghijklmnopqrstuvwxyz\r\n0\r\n\r\n"),
                  Chunked("1A\r\nabcdefghijklmnopqrstuvwxyz\r\n0\r\n\r\n")});
    table.Accept("POST /p \r\n0\r\n\r\n", {Chunked("7\r\n\r\n0\r\n\r\n\r\n0\r\n\r\n")});
    table.Accept("POST /p ", {Chunked("0\r\n\r\n")});
    table.Refuse(
        "400",
        {Chunked("\r\n"), Chunked("5\nhello\r\n0\r\n\r\n"), Chunked("5\r\nhello\n0\r\n\r\n"),
         Chunked("5\r\nhello0\r\n\r\n"), Chunked("5\r\nhello!\r\n0\r\n\r\n"),
         Chunked("5\r\nhell\r\n0\r\n\r\n"), Chunked("5\r\nhello\r\n\r\n0\r\n\r\n"),
         Chunked("5\r\nhello\r0\r\n\r\n"), Chunked("5\rhello\r\n0\r\n\r\n"),
         Chunked("5\r\r\nhello\r\n0\r\n\r\n"), Chunked(" 5\r\nhello\r\n0\r\n\r\n"),
         Chunked("5 \r\nhello\r\n0\r\n\r\n"), Chunked("0x5\r\nhello\r\n0\r\n\r\n"),
         Chunked("+5\r\nhello\r\n0\r\n\r\n"), Chunked("-5\r\nhello\r\n0\r\n\r\n"), Chunked("-0\r\n\r\n"),
         Chunked("5h\r\nhello\r\n0\r\n\r\n"), Chunked("5_0\r\nhello\r\n0\r\n\r\n"), Chunked("g\r\n"),
         Chunked("\xd9\xa5\r\nhello\r\n"), Chunked("5,\r\nhello\r\n"), Chunked("5\0\r\nhello\r\n"s),
         Chunked("00000000000000005\r\nhello\r\n0\r\n\r\n"),
         Chunked("10000000000000005\r\nhello\r\n0\r\n\r\n"),
         // Extensions.
         Chunked(";a\r\n"), Chunked("5;\r\nhello\r\n"), Chunked("5;a;\r\nhello\r\n"),
         Chunked("5;;a\r\nhello\r\n"), Chunked("5;=b\r\nhello\r\n"), Chunked("5;a=\r\nhello\r\n"),
         Chunked("5;a b\r\nhello\r\n"), Chunked("5;a \r\nhello\r\n"), Chunked("5 a\r\nhello\r\n"),
         Chunked("5;a=b c\r\nhello\r\n"), Chunked("5;a=\"b\r\nhello\r\n"),
         Chunked("5;a=\"b\\\"\r\nhello\r\n"), Chunked("5;a=\"b\"c\r\nhello\r\n"),
         Chunked("5;a=b\"c\"\r\nhello\r\n"), Chunked("5;a\n0\r\n\r\n"), Chunked("5;a=\"\n\"\r\nhello\r\n"),
         Chunked("5;a\rb\r\nhello\r\n"), Chunked("5;a=\"\r\n\"\r\nhello\r\n"), Chunked("5;\x01\r\nhello\r\n"),
         Chunked("5;a=\x80\r\nhello\r\n"), Chunked("5;a=\"\x7f\"\r\nhello\r\n"),
         Chunked("5;" + std::string(1100, 'a') + "\r\nhello\r\n")});
    table.Refuse("413", {Chunked("3e9\r\n"), Chunked("3e8\r\n" + std::string(1000, 'x') + "\r\n1\r\n"),
                         Chunked("ffffffffffffffff\r\nhello"), Chunked("8000000000000005\r\nhello"),
                         Chunked("100000005\r\nhello")});
    table.Add(Chunked("5\r\nhello\r\n"), {CRawRequest::kWaits});
    table.Add(Chunked("0\r\n"), {CRawRequest::kWaits});

    table.Family("trailer");
    const auto trailed = [](const std::string& lines) {
        return Chunked("5\r\nhello\r\n0\r\n" + lines + "\r\n");
    };
    table.Accept("POST /p hello",
                 {trailed("X: y\r\n"), trailed("X:\r\nY: z\r\n"),
                  trailed("Content-Length: 9\r\nTransfer-Encoding: x\r\nHost: other.test\r\n"),
                  trailed("X: " + std::string(507, 'x') + "\r\n")});
    table.Refuse("400", {trailed("X\r\n"), trailed("X : y\r\n"), trailed(" X: y\r\n"),
                         trailed("X: y\r\n z\r\n"), trailed("X: y\n"), trailed("X: \0\r\n"s),
                         trailed(": y\r\n"), trailed("X: y\rZ: z\r\n"), trailed("GET / HTTP/1.1\r\n"),
                         Chunked("0\r\n\n"), Chunked("0\r\n\r\r\n"), Chunked("0\r\nX: y\r\n\n")});
    table.Refuse(
        "431",
        {trailed("X: " + std::string(508, 'x') + "\r\n"), trailed("X: " + std::string(600, 'x') + "\r\n"),
         trailed("X: " + std::string(250, 'x') + "\r\nY: " + std::string(253, 'x') + "\r\n")});
}

void AddLimits(CTable& table) {
    table.Family("limit");
    // "GET /…a HTTP/1.1" of 128 bytes.
    const std::string longest = "/" + std::string(114, 'a');
    table.Accept("GET " + longest + " ", {To(longest), "\r\n" + To(longest)});
    table.Refuse("414", {To(longest + "a"), To(longest + std::string(100, 'a')), std::string(200, 'A'),
                         std::string(200, ' ') + "\r\n"});
    // 17 bytes of Host, 495 of others.
    const std::string field = "X: " + std::string(495 - 5, 'x') + "\r\n";
    table.Accept("POST /p ", {Post(field)});
    table.Refuse("431", {Post("Y" + field), Post(field + "Y:\r\n"), Post(field + field),
                         "GET / HTTP/1.1\r\nHost: localhost\r\nX: " + std::string(600, 'x'),
                         "GET / HTTP/1.1\r\nX" + std::string(600, ' ') + ": y\r\n"});
    std::string fields;
    for (int i = 0; i < 19; ++i) fields += "X: y\r\n";
    table.Accept("POST /p ", {Post(fields)});
    table.Refuse("431", {Post(fields + "X:\r\n")});
    const std::string body(1000, 'b');
    table.Accept("POST /p " + body,
                 {Post("Content-Length: 1000\r\n", body), Chunked("3e8\r\n" + body + "\r\n0\r\n\r\n")});
    table.Refuse("413", {Post("Content-Length: 1001\r\n", body + "b")});
}

void AddSequences(CTable& table) {
    table.Family("sequence");
    const std::string get = To("/g");
    const std::string hidden = "GET /hidden HTTP/1.1\r\nHost: localhost\r\n\r\n";
    const std::string hiddenLength = std::to_string(hidden.size());
    table.Add(get + get + get, {"GET /g ", "GET /g ", "GET /g "});
    table.Add(Post("Content-Length: 2\r\n", "hi") + get, {"POST /p hi", "GET /g "});
    table.Add(Post("Content-Length: 2\r\n", "hi\r\n") + get, {"POST /p hi", "GET /g "});
    table.Add(Chunked("2\r\nhi\r\n0\r\n\r\n") + get, {"POST /p hi", "GET /g "});
    table.Add(Post("Content-Length: " + hiddenLength + "\r\n", hidden) + get,
              {"POST /p " + hidden, "GET /g "});
    table.Add(get + "\r\n" + get, {"GET /g ", "GET /g "});
    table.Add("GET http://other.test/ HTTP/1.1\r\nHost: localhost\r\nContent-Length: " + hiddenLength +
                  "\r\n\r\n" + hidden + get,
              {"404", "GET /g "});
    table.Add(Post("Connection: close\r\n") + hidden, {"POST /p ", CRawRequest::kCloses});
    table.Add(get + "garbage\r\n\r\n", {"GET /g ", "400", CRawRequest::kCloses});
    table.Add(Post("Content-Length: 2\r\n", "hi!") + get, {"POST /p hi", "!GET /g "});  // a token
    table.Add(Chunked("2\r\nhi\r\n0\r\n\r\nX"), {"POST /p hi", CRawRequest::kWaits});
    table.Add(Post("Content-Length: 2\r\n", "hi\r\n\r\n") + get, {"POST /p hi", "400", CRawRequest::kCloses});
    table.Add(Post("Transfer_Encoding: chunked\r\n", "0\r\n\r\n") + get,
              {"POST /p ", "400", CRawRequest::kCloses});

    table.Family("smuggling");
    // Each would hide a request from one of two readers that disagree on the first one's length.
    table.Refuse(
        "400",
        {Post("Content-Length: 6\r\nTransfer-Encoding: chunked\r\n", "0\r\n\r\nG" + hidden),
         Post("Content-Length: 4\r\nTransfer-Encoding: chunked\r\n", "2b\r\n" + hidden + "\r\n0\r\n\r\n"),
         Post("Transfer-Encoding: chunked\r\nTransfer-Encoding: x\r\n", "0\r\n\r\n" + hidden),
         Post("Transfer-Encoding: x\r\nTransfer-encoding: identity\r\n", "0\r\n\r\n" + hidden),
         Post("Transfer-Encoding:\x0b"
              "chunked\r\nContent-Length: 5\r\n",
              "0\r\n\r\n" + hidden),
         Post("Transfer-Encoding: chunked\r\nContent-Length\r\n", "0\r\n\r\n" + hidden),
         Post("Content-Length: 0\r\nContent-Length: " + hiddenLength + "\r\n", hidden),
         Post("Content-Length: 0, " + hiddenLength + "\r\n", hidden), Post("Content-Length: 0\n\r\n", hidden),
         Post("X: y\r\n\tContent-Length: " + hiddenLength + "\r\n", hidden),
         Chunked("5;a\nhello\r\n0\r\n\r\n" + hidden), Chunked("5\r\nhelloXX0\r\n\r\n" + hidden),
         Chunked("0\r\nX: y\r\n" + hidden), "GET / HTTP/1.1\r\nHost: localhost\r\nX: y\n\n" + hidden,
         "GET / HTTP/1.1\r\nHost: localhost\r\nX: y\r\n\n" + hidden, "GET /\r\n\r\n" + hidden,
         "GET / HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n" + hidden});
}

}  // namespace

std::string CRawRequest::Name() const {
    std::string name = family + ": ";
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x20 && byte < 0x7F) {
            name.push_back(character);
        } else {
            constexpr char kDigits[] = "0123456789abcdef";
            name.append({'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xF]});
        }
    }
    return name;
}

const std::vector<CRawRequest>& RawRequests() {
    static const std::vector<CRawRequest> rows = [] {
        CTable table;
        AddRequestLines(table);
        AddTargets(table);
        AddHosts(table);
        AddFields(table);
        AddLengths(table);
        AddCodings(table);
        AddChunks(table);
        AddLimits(table);
        AddSequences(table);
        return table.rows;
    }();
    return rows;
}

}  // namespace quorbel
