#pragma once

#include <cstddef>
#include <string_view>

// What a reader of HTTP requests has to do next.
struct HttpStep {
    enum class Kind {
        request,   // answer `url`, then go on
        wait,      // no whole request stands here: more bytes have to come
        invalid,   // end the connection: these bytes can't be read as requests
        too_long,  // end the connection: a head passed its limit without an end
    };

    Kind kind = Kind::wait;
    std::size_t drop = 0;  // then remove so many bytes from the front of the connection's buffer
    std::string_view url = {};
};

// Looks for requests among the bytes of a connection, from the front to the end. Of a request it
// reads the method, GET or POST, and the URL, which " HTTP/" ends; the head must end in an empty
// line. A request is dropped as far as its " HTTP/": the rest of its head, and a body, are passed
// over on the way to the next method word. `bytes` must stay until the last step.
//
// The cost of all steps together is linear in the number of bytes.
class HttpScanner {
  public:
    // A head that has more bytes than this, and still no end, ends the connection.
    static constexpr std::size_t head_limit = std::size_t{64} * 1024;

    explicit HttpScanner(std::string_view bytes) : bytes_(bytes) {}

    // Not to be called again behind any other step than a request.
    HttpStep next();

  private:
    // Finds a text from positions that only grow, and so reads no byte twice.
    class Search {
      public:
        Search(const std::string_view& bytes, std::string_view text) : bytes_(bytes), text_(text) {}
        // npos, which lies behind every position, if it isn't there.
        std::size_t from(std::size_t position);
        std::size_t length() const { return text_.size(); }

      private:
        const std::string_view& bytes_;
        std::string_view text_;
        bool searched_ = false;
        std::size_t found_ = 0;
    };

    HttpStep unfinished(std::size_t head, std::size_t drop) const;
    HttpStep tail() const;
    std::string_view url(std::size_t begin, std::size_t end) const;

    std::string_view bytes_;
    std::size_t consumed_ = 0;
    Search get_{bytes_, "GET "};
    Search post_{bytes_, "POST "};
    Search version_{bytes_, " HTTP/"};
    Search head_end_{bytes_, "\r\n\r\n"};
};
