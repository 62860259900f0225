// An initialised console on the readable test terminal, with everything the
// library writes to standard output captured for exact comparisons.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "console.h"
#include "os-unix.h"
#include "pty_harness.h"

class StdoutCapture {
  public:
    StdoutCapture() {
        fflush(stdout);
        saved_ = dup(1);
        path_ = qvtest::tempDir() + "/stdout";
        const int fd = open(path_.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        dup2(fd, 1);
        close(fd);
    }
    ~StdoutCapture() {
        fflush(stdout);
        dup2(saved_, 1);
        close(saved_);
        unlink(path_.c_str());
    }
    // What was written since the last call.
    std::string take() {
        fflush(stdout);
        FILE *f = fopen(path_.c_str(), "rb");
        std::string all;
        char buf[4096];
        size_t n;
        while (f && (n = fread(buf, 1, sizeof buf, f)) > 0) all.append(buf, n);
        if (f) fclose(f);
        std::string fresh = all.substr(seen_);
        seen_ = all.size();
        return fresh;
    }

  private:
    int saved_;
    size_t seen_ = 0;
    std::string path_;
};

class ConsoleTest : public ::testing::Test {
  protected:
    void SetUp() override { start("qv-readable"); }
    void TearDown() override {
        if (started_) console_free(&c);
        capture_.reset();
    }
    void start(const char *term) {
        if (started_) console_free(&c);
        setenv("TERMINFO", qvtest::terminfoDir().c_str(), 1);
        setenv("TERM", term, 1);
        unsetenv("LINES");
        unsetenv("COLUMNS");
        capture_.reset();
        capture_.reset(new StdoutCapture);
        c = console{};
        ASSERT_EQ(console_init(&c), 1);
        started_ = true;
        ASSERT_EQ(console_init_editor(&c), 1);
        c.prompt = L"";
        capture_->take();
    }
    std::string take() { return capture_->take(); }
    // The model row y as text, trailing blanks removed.
    std::string row(int y) {
        std::string s;
        const termline *l = c.screen.input.lines[y];
        for (int j = 0; j < l->cols; j++) s += static_cast<char>(l->chars[j].ch);
        while (!s.empty() && s.back() == ' ') s.pop_back();
        return s;
    }
    void type(const std::wstring &text) {
        for (wchar_t ch : text) action_insert_char(&c, static_cast<int>(ch));
    }

    console c{};
    std::unique_ptr<StdoutCapture> capture_;
    bool started_ = false;
};
