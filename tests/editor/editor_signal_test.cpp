// Signals while the editor reads a line: when they are passed on, what they find and what
// they leave.
#include "editor_signals.h"

#include <semaphore.h>

// ---- rl_signal ----

static void
other_plain(int)
{
    calls += 100;
}

TEST_F(EditorSignals, RlSignalHasTheContractOfSignal)
{
    struct sigaction wanted = {};
    wanted.sa_handler = plain;
    wanted.sa_flags = SA_NODEFER | SA_ONSTACK;
    sigaddset(&wanted.sa_mask, SIGUSR1);
    for (int signo : {SIGINT, SIGTSTP}) {
        calls = 0;
        sigaction(signo, &wanted, nullptr);
        struct sigaction before = disposition(signo);
        EXPECT_EQ(rl_signal(signo, other_plain), plain);
        EXPECT_NE(disposition(signo).sa_handler, other_plain);
        EXPECT_NE(disposition(signo).sa_handler, plain);
        raise(signo); // no read is under way: at once
        EXPECT_EQ(calls, 100);
        EXPECT_EQ(rl_signal_restore(signo, plain), other_plain);
        EXPECT_TRUE(same(disposition(signo), before)) << "flags and mask too";
        raise(signo);
        EXPECT_EQ(calls, 101);
    }
}

TEST_F(EditorSignals, RlSignalTwiceKeepsTheProgramsOwnDisposition)
{
    set_disposition(SIGINT, plain);
    EXPECT_EQ(rl_signal(SIGINT, jump), plain);
    EXPECT_EQ(rl_signal(SIGINT, other_plain), plain);
    raise(SIGINT);
    EXPECT_EQ(calls, 100);
    rl_signal_restore(SIGINT, plain);
    EXPECT_EQ(disposition(SIGINT).sa_handler, plain);
}

TEST_F(EditorSignals, RestoredToSomethingElse)
{
    set_disposition(SIGINT, plain);
    rl_signal(SIGINT, jump);
    rl_signal_restore(SIGINT, other_plain);
    EXPECT_EQ(disposition(SIGINT).sa_handler, other_plain);
}

TEST_F(EditorSignals, FunctionThatStaysInForceOverManyLines)
{
    set_disposition(SIGINT, plain);
    rl_signal(SIGINT, other_plain);
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(read_line({keys("ab\r")}), "ab"); // which are freed
    rl_signal_restore(SIGINT, plain);
}

// ---- dispositions as found ----

static void
set_unusual_dispositions()
{
    struct sigaction wanted = {};
    wanted.sa_sigaction = with_info;
    wanted.sa_flags = SA_SIGINFO | SA_NODEFER;
    sigaddset(&wanted.sa_mask, SIGUSR2);
    sigaction(SIGINT, &wanted, nullptr);
    sigaction(SIGHUP, &wanted, nullptr);
    set_disposition(SIGTSTP, SIG_IGN, SA_RESTART);
    set_disposition(SIGQUIT, SIG_IGN);
    set_disposition(SIGTERM, plain, SA_RESETHAND | SA_ONSTACK);
    set_disposition(SIGCONT, SIG_DFL);
    set_disposition(SIGWINCH, other_plain, SA_RESTART);
}

TEST_F(EditorSignals, AllSevenAreTakenForTheReadAndGivenBack)
{
    set_unusual_dispositions();
    std::vector<struct sigaction> before = dispositions();
    int taken_signals = 0;
    auto look = [&] {
        for (size_t i = 0; i < before.size(); i++)
            taken_signals += disposition(signals[i]).sa_handler != before[i].sa_handler;
    };
    EXPECT_EQ(read_line({keys("ab"), then(look), keys("\r")}), "ab");
    EXPECT_EQ(taken_signals, 7);
    EXPECT_EQ(changed_since(before), 0);
    EXPECT_EQ(read_line({}), end_of_input);
    EXPECT_EQ(changed_since(before), 0);
}

TEST_F(EditorSignals, GivenBackAfterAJump)
{
    set_unusual_dispositions();
    std::vector<struct sigaction> before = dispositions();
    for (int signo : {SIGINT, SIGTSTP}) {
        EXPECT_EQ(guarded_line({keys("ab"), then([=] { raise(signo); }), keys("c")}),
                  signo == SIGINT ? interrupted : suspended);
        EXPECT_EQ(changed_since(before), 0);
        EXPECT_TRUE(::same(settings(), original));
    }
    EXPECT_EQ(calls, 0);
}

TEST_F(EditorSignals, SetDuringTheReadItStays)
{
    auto set = [] { set_disposition(SIGTERM, other_plain, SA_NODEFER); };
    read_line({keys("a"), then(set), keys("\r")});
    EXPECT_EQ(disposition(SIGTERM).sa_handler, other_plain);
    EXPECT_TRUE(disposition(SIGTERM).sa_flags & SA_NODEFER);
}

TEST_F(EditorSignals, RestoredDuringTheReadTheFunctionIsNotCalled)
{
    set_disposition(SIGINT, plain);
    auto restore_late = [] {
        raise(SIGINT); // noted, not yet passed on
        jump_restore();
    };
    EXPECT_EQ(guarded_line({keys("ab"), then(restore_late), keys("c\r")}), "abc");
    EXPECT_EQ(jumps, 0);
    EXPECT_EQ(calls, 1);
}

// ---- safe moments ----

static int jumps_in_hook;

static char **
no_matches()
{
    rl_attempted_completion_over = 1;
    return nullptr;
}

static char **
raise_in_hook(const char *, int, int)
{
    raise(SIGINT);
    jumps_in_hook = jumps;
    return no_matches();
}

TEST_F(EditorSignals, DuringACompletionItWaits)
{
    rl_attempted_completion_function = raise_in_hook;
    jumps_in_hook = -1;
    EXPECT_EQ(guarded_line({keys("ab\t")}), interrupted);
    EXPECT_EQ(jumps_in_hook, 0);
    EXPECT_EQ(jumps, 1);
    EXPECT_EQ(guarded_line({keys("cd\r")}), "cd");
}

TEST_F(EditorSignals, BetweenTwoWaitsItWaits)
{
    int between = -1;
    EXPECT_EQ(guarded_line({keys("ab"), then([&] {
                                raise(SIGINT);
                                between = jumps;
                            }),
                            keys("c")}),
              interrupted);
    EXPECT_EQ(between, 0);
}

TEST_F(EditorSignals, BeforeTheReadItLandsAtOnce)
{
    set_disposition(SIGINT, plain);
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, SIGINT);
    pthread_sigmask(SIG_BLOCK, &one, nullptr);
    raise(SIGINT);
    EXPECT_EQ(guarded_line({keys("never read\r")}), interrupted);
    EXPECT_EQ(shown, "");
    pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    EXPECT_EQ(calls, 0);
}

// A key that was seen and is gone, as when the terminal flushes its input at Ctrl-C.
static void
take_key_away()
{
    before_read = nullptr;
    tcflush(slave, TCIFLUSH);
    typed--;
    raise(SIGINT);
}

static bool read_while_cooked;

// Types on when the editor, the interrupt behind it, waits or reads.
static void
type_when_awaited()
{
    if (calls == 0 || typed > taken || rl_signal_level == 0)
        return;
    read_while_cooked = !is_raw(); // a key would not end that, only a whole line
    type("c\r");
}

TEST_F(EditorSignals, KeyThatTheTerminalTookAwayWithTheSignal)
{
    set_disposition(SIGINT, plain);
    read_while_cooked = true;
    auto prepare = [] {
        before_read = take_key_away;
        at_step = type_when_awaited;
    };
    EXPECT_EQ(read_line({keys("a"), then(prepare), keys("b")}), "ac");
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(read_while_cooked);
    EXPECT_TRUE(::same(settings(), original));
}

// ---- other threads ----

static sem_t thread_go;
static int thread_signal;

// Sends itself a signal: its handler runs here first.
static void *
hit_itself(void *)
{
    sem_wait(&thread_go);
    pthread_kill(pthread_self(), thread_signal);
    return nullptr;
}

TEST_F(EditorSignals, OnAnotherThreadItIsSentOn)
{
    for (int signo : {SIGINT, SIGTSTP}) {
        pthread_t thread;
        sem_init(&thread_go, 0, 0);
        thread_signal = signo;
        ASSERT_EQ(pthread_create(&thread, nullptr, hit_itself, nullptr), 0);
        EXPECT_EQ(guarded_line({keys("ab"), then([=] {
                                    sem_post(&thread_go);
                                    pthread_join(thread, nullptr);
                                }),
                                keys("c")}),
                  signo == SIGINT ? interrupted : suspended);
        EXPECT_TRUE(pthread_equal(landed_on, pthread_self()));
        EXPECT_TRUE(::same(settings(), original));
    }
}

TEST_F(EditorSignals, ResizeOnAnotherThread)
{
    pthread_t thread;
    sem_init(&thread_go, 0, 0);
    thread_signal = SIGWINCH;
    int columns = 0;
    ASSERT_EQ(pthread_create(&thread, nullptr, hit_itself, nullptr), 0);
    EXPECT_EQ(read_line({keys("ab"), then([=] {
                             set_window(24, 40);
                             sem_post(&thread_go);
                             pthread_join(thread, nullptr);
                         }),
                         keys("c"), then([&] { rl_get_screen_size(nullptr, &columns); }),
                         keys("\r")}),
              "abc");
    EXPECT_EQ(columns, 40);
}

// ---- functions that return ----

class EditorSignalsReturning : public EditorSignals,
                               public ::testing::WithParamInterface<int>
{
};

// What is seen when the read goes on: everything below the line's first row is cleared.
static const char *const redrawn = "\r\033[J> ab";

TEST_P(EditorSignalsReturning, TheReadGoesOn)
{
    set_disposition(GetParam(), plain);
    bool raw = false;
    size_t from = 0;
    int redraws = 0;
    EXPECT_EQ(read_line({keys("ab"), then([&] {
                             sees("> ab");
                             from = shown.size();
                             raise(GetParam());
                             EXPECT_EQ(calls, 0);
                         }),
                         keys("c"), then([&] {
                             sees("c", from);
                             raw = is_raw();
                             redraws = count_shown("> ab", from);
                         }),
                         keys("\r")}),
              "abc");
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(last_call, GetParam());
    EXPECT_TRUE(raw);
    EXPECT_EQ(redraws, 1);
    EXPECT_TRUE(::same(settings(), original));
}

TEST_P(EditorSignalsReturning, WithInformation)
{
    struct sigaction wanted = {};
    wanted.sa_sigaction = with_info;
    wanted.sa_flags = SA_SIGINFO;
    sigaction(GetParam(), &wanted, nullptr);
    EXPECT_EQ(read_line({keys("ab"), then([&] { raise(GetParam()); }), keys("c\r")}),
              "abc");
    EXPECT_EQ(calls, 1);
}

TEST_P(EditorSignalsReturning, Ignored)
{
    set_disposition(GetParam(), SIG_IGN);
    EXPECT_EQ(read_line({keys("ab"), then([&] { raise(GetParam()); }), keys("c\r")}),
              "abc");
    EXPECT_TRUE(::same(settings(), original));
}

// What comes from the terminal when it is asked for its cursor, the answer and keys.
static std::string from_terminal;

// The editor waits for the answer.
static void
answer()
{
    if (!is_limited)
        return;
    again = nullptr;
    EXPECT_TRUE(sees("\033[6n"));
    EXPECT_EQ(write(master, from_terminal.data(), from_terminal.size()),
              static_cast<ssize_t>(from_terminal.size()));
    EXPECT_TRUE(is_pending(static_cast<int>(from_terminal.size())));
}

static void
raise_and_answer(int signal, const std::string &with)
{
    from_terminal = with;
    at_step = with.empty() ? nullptr : answer;
    raise(signal);
    serve_signals();
    at_step = nullptr;
}

// What is written before the first of 100 characters, when a line of two rows is redrawn
// behind a signal.
static std::string
drawn_behind(int signal, const std::string &with)
{
    set_disposition(signal, plain);
    std::string drawn;
    read_line({keys(std::string(100, 'x')), then([&] {
                   fflush(rl_outstream);
                   drain();
                   shown.clear();
                   raise_and_answer(signal, with);
                   sees("> x");
                   drawn = shown.substr(0, shown.find("x"));
               }),
               keys("\r")});
    return drawn;
}

TEST_F(EditorSignals, DrawnAnewFromItsFirstRow)
{
    EXPECT_EQ(drawn_behind(SIGINT, ""), "\033[A\r\033[J> ");
}

// A shell that printed meanwhile has left the cursor in the first column.
TEST_F(EditorSignals, BehindAStopTheTerminalIsAsked)
{
    EXPECT_EQ(drawn_behind(SIGTSTP, "\033[7;23R"), "\033[6n\033[A\r\033[J> ");
    EXPECT_EQ(drawn_behind(SIGTSTP, "\033[7;1R"), "\033[6n\r\033[J> ");
}

TEST_F(EditorSignals, ATerminalThatDoesNotAnswerIsAskedOnce)
{
    EXPECT_EQ(drawn_behind(SIGTSTP, ""), "\033[6n\r\033[J> ");
    EXPECT_EQ(drawn_behind(SIGTSTP, ""), "\r\033[J> ");
}

// It would show a part of the request.
TEST_F(EditorSignals, ATerminalFromBeforeTheRequestIsNotAsked)
{
    setenv("TERM", "vt220", 1);
    ASSERT_EQ(rl_initialize(), 0);
    EXPECT_EQ(drawn_behind(SIGTSTP, "\033[7;23R").substr(0, 4), "\033[6n");
    setenv("TERM", "vt52", 1);
    ASSERT_EQ(rl_initialize(), 0);
    EXPECT_EQ(drawn_behind(SIGTSTP, ""), "\r\033J> ");
}

TEST_F(EditorSignals, KeysAroundAnAnswerAreKept)
{
    set_disposition(SIGTSTP, plain);
    std::string text = "c\033[D\033[7;23Ref\r";
    EXPECT_EQ(read_line({keys(std::string(100, 'x')), then([&] {
                             typed += text.size() - strlen("\033[7;23R");
                             raise_and_answer(SIGTSTP, text);
                         })}),
              std::string(100, 'x') + "efc");
}

INSTANTIATE_TEST_SUITE_P(Both, EditorSignalsReturning, ::testing::Values(SIGINT, SIGTSTP));

static struct termios settings_in_handler;

static void
look_at_settings(int)
{
    settings_in_handler = settings();
    calls++;
}

TEST_F(EditorSignals, TheFunctionFindsTheTerminalAsItWas)
{
    original.c_lflag |= NOFLSH;
    original.c_lflag &= ~static_cast<tcflag_t>(ECHOCTL);
    tcsetattr(slave, TCSANOW, &original);
    set_disposition(SIGINT, look_at_settings);
    read_line({keys("ab"), then([] { raise(SIGINT); }), keys("c\r")});
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(::same(settings_in_handler, original));
}

TEST_F(EditorSignals, BothAtOnceAreBothCalled)
{
    set_disposition(SIGINT, plain);
    set_disposition(SIGTSTP, plain);
    EXPECT_EQ(read_line({keys("ab"), then([] {
                             raise(SIGTSTP);
                             raise(SIGINT);
                         }),
                         keys("c\r")}),
              "abc");
    EXPECT_EQ(calls, 2);
}

// ---- signals that leave the read alone ----

TEST_F(EditorSignals, HandledEndsDoNotDisturb)
{
    for (int signo : {SIGTERM, SIGHUP, SIGQUIT}) {
        set_disposition(signo, plain);
        calls = 0;
        size_t from = 0;
        EXPECT_EQ(read_line({keys("ab"), then([&] {
                                 sees("> ab");
                                 from = shown.size();
                                 raise(signo);
                                 EXPECT_EQ(calls, 1) << "at once";
                                 EXPECT_TRUE(is_raw());
                             }),
                             keys("c"), then([&] { sees("c", from); }), keys("\r")}),
                  "abc");
        EXPECT_EQ(shown.substr(from), "c\r\n");
        from = shown.size();
    }
}

TEST_F(EditorSignals, EveryResizeCounts)
{
    set_disposition(SIGWINCH, plain);
    int columns[3] = {};
    size_t from = 0;
    std::vector<Step> all = {keys("ab")};
    for (int i = 0; i < 3; i++) {
        all.push_back(then([&, i] {
            sees("ab", from);
            from = shown.size();
            set_window(24, 40 + i);
            raise(SIGWINCH);
        }));
        all.push_back(keys("\001")); // to the line's start
        all.push_back(then([&, i] {
            rl_get_screen_size(nullptr, &columns[i]);
            EXPECT_TRUE(sees(redrawn, from)) << i;
        }));
    }
    all.push_back(keys("c\r"));
    EXPECT_EQ(read_line(all), "cab");
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(columns[i], 40 + i);
    EXPECT_EQ(calls, 3);
}

static int waits_seen;

// At the moment before the kernel's wait, after the last look at the notes.
static void
resize_before_the_wait()
{
    if (rl_signal_level != 2)
        return;
    waits_seen++;
    if (waits_seen == 1) {
        set_window(24, 50);
        at_step = resize_before_the_wait; // the handler leaves the wait: no way back here
        raise(SIGWINCH);
        ADD_FAILURE() << "the wait goes on";
    } else if (waits_seen == 2)
        type("c\r"); // only a wait that has ended gets here
}

TEST_F(EditorSignals, ResizeRightBeforeTheWaitEndsIt)
{
    waits_seen = 0;
    typed = 2; // the reader waits, although nothing is typed
    taken = 1;
    set_script({});
    at_step = resize_before_the_wait;
    char *line = readline("> ");
    at_step = nullptr;
    EXPECT_STREQ(line, "c");
    free(line);
    int columns = 0;
    rl_get_screen_size(nullptr, &columns);
    EXPECT_EQ(columns, 50);
}

// ---- who has the editor ----

static int claimed_times; // changed by whoever has the editor, without any other lock

static void *
claim_often(void *)
{
    for (int i = 0; i < 20000; i++) {
        if (!rl_claim(i % 2)) // now or when it may
            rl_claim(1);
        if (i % 4 == 0) {
            EXPECT_EQ(rl_claim(0), 1) << "within itself";
            rl_release();
        }
        claimed_times++;
        rl_release();
    }
    return nullptr;
}

TEST_F(EditorSignals, OneThreadAtATimeHasTheEditor)
{
    pthread_t threads[3];
    claimed_times = 0;
    for (pthread_t &thread : threads)
        ASSERT_EQ(pthread_create(&thread, nullptr, claim_often, nullptr), 0);
    claim_often(nullptr);
    for (pthread_t thread : threads)
        pthread_join(thread, nullptr);
    EXPECT_EQ(claimed_times, 4 * 20000);
}

static sem_t claim_refused;

static void *
claim_what_is_held(void *)
{
    EXPECT_EQ(rl_claim(0), 0);
    sem_post(&claim_refused);
    EXPECT_EQ(rl_claim(1), 1);
    rl_release();
    return nullptr;
}

TEST_F(EditorSignals, WhoeverWaitsGetsTheEditorWithItsLastRelease)
{
    sem_init(&claim_refused, 0, 0);
    for (int i = 0; i < 200; i++) { // at another moment of the waiting each time
        pthread_t thread;
        rl_hold();
        ASSERT_EQ(rl_claim(0), 1);
        ASSERT_EQ(pthread_create(&thread, nullptr, claim_what_is_held, nullptr), 0);
        sem_wait(&claim_refused);
        rl_release();
        for (volatile int spin = 0; spin < 100 * i; spin++)
            continue;
        rl_let_go();
        rl_let_go(); // nobody has it any more: nothing
        pthread_join(thread, nullptr);
    }
}
