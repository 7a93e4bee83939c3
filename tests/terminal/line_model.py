"""What each key does to the line and the insertion point, without a display.

A Line is what the user of one shell edits with emacs keys, line after line; screen.py has the
names of the keys. During a search a second row has the pattern, see `shown`.
"""
from characters import columns, is_alphanumeric, is_letter, lower, upper
from layout_model import is_shown
from screen import keys


def is_word(char):
    return is_alphanumeric(char) or char in "*?_-.[]~="


def is_mark(char):
    """Whether it is a combining mark."""
    return is_shown(char) and columns(char) == 0


class Search:
    """One step of a search: what is looked for, and where it was found."""

    def __init__(self, pattern, found, place, text, cursor):
        self.pattern, self.found = pattern, found
        self.place, self.text, self.cursor = place, text, cursor


class Line:
    def __init__(self, history=()):
        self.history = []  # the newest first
        for line in history:
            self.enter(line)
        self.killed = self.saved = ""
        self.found = True  # where the last search ended
        self.begin()

    def begin(self):
        """A new line is read."""
        self.text, self.cursor = "", 0
        self.place = 0  # in the history; 0 is the line itself
        self.searches = []

    def enter(self, line):
        """The shell adds a line to the history."""
        if line.strip(" \t\n\v\f\r") and line not in self.history[:1]:
            self.history.insert(0, line)

    @property
    def shown(self):
        """The line as it is displayed."""
        if not self.searches:
            return self.text
        step = self.searches[-1]
        return "%s\nbck%s%s" % (self.text, ":" if step.found else "?", step.pattern)

    def takes(self, key):
        """Whether this model is for that key now.

        Not if it would end the input; nor in a search, which would take its parts for keys,
        or take a word of the line with Ctrl-W.
        """
        if self.searches and (key == "<c-w>" or keys(key).startswith(b"\x1b")):
            return False
        return bool(self.text) or key != "<c-d>"

    def told(self):
        """What the shell is told of the line: as many bytes as it has characters."""
        return self.text.encode()[:len(self.text)]

    # Keys

    def key(self, key):
        """One key, or one character; those with a Meta are one key."""
        if self.searches and self._search(key):
            self.cursor = min(self.cursor, len(self.shown))
            if not self.searches:
                self._settle()
            return
        if key in EDITING:
            EDITING[key](self)
        elif key.startswith("<m-3>"):
            self._three_times(key[5:])
        else:
            assert len(key) == 1, key
            self.insert(key)
        if not self.searches:
            self._settle()

    def _settle(self):
        """The insertion point is never between a character and its marks."""
        if self.cursor > 0:
            self.cursor = self._behind_marks(self.cursor)

    def _behind_marks(self, at):
        while at < len(self.text) and is_mark(self.text[at]):
            at += 1
        return at

    def _base(self, at):
        """Where the character begins that this is a part of."""
        while at > 0 and is_mark(self.text[at]):
            at -= 1
        return at

    def _before(self, at):
        return self._base(at - 1) if at > 0 else 0

    def _after(self, at):
        return self._behind_marks(at + 1) if at < len(self.text) else at

    def _three_times(self, key):
        """The key with a count of 3; what it deletes can be inserted again."""
        text = self.text
        for _ in range(3):
            self.key(key)
        if key in ("<bs>", "<del>") and text != self.text:
            gone = len(text) - len(self.text)
            self.killed = text[self.cursor:self.cursor + gone]

    def insert(self, text):
        self.text = self.text[:self.cursor] + text + self.text[self.cursor:]
        self.cursor += len(text)

    def answer(self, text):
        """The answer of a completion, at the line's end."""
        rest = text.lstrip("\b")
        self.text = self.text[:max(0, len(self.text) - len(text) + len(rest))] + rest
        if text:
            self.cursor = len(self.text)

    def left(self):
        self.cursor = self._before(self.cursor)

    def right(self):
        self.cursor = self._after(self.cursor)

    def home(self):
        self.cursor = 0

    def end(self):
        self.cursor = len(self.text)

    def _word_left(self):
        at = self.cursor
        while at > 0 and not is_word(self.text[self._base(at - 1)]):
            at -= 1
        while at > 0 and is_word(self.text[self._base(at - 1)]):
            at -= 1
        return at

    def _word_right(self):
        at = self.cursor
        while at < len(self.text) and not is_word(self.text[at]):
            at += 1
        while at < len(self.text) and (is_word(self.text[at]) or is_mark(self.text[at])):
            at += 1
        return at

    def word_left(self):
        self.cursor = self._word_left()

    def word_right(self):
        self.cursor = self._word_right()

    def _delete(self, start, end, kill=False):
        if kill:
            self.killed = self.text[start:end]
        self.text = self.text[:start] + self.text[end:]
        self.cursor = start

    def backspace(self):
        self._delete(self._before(self.cursor), self.cursor)

    def delete(self):
        """With Ctrl-D."""
        self._delete(self.cursor, self._after(self.cursor))

    def delete_and_keep(self):
        """With Delete; what it deletes can be inserted again."""
        if self.cursor < len(self.text):
            self._delete(self.cursor, self._after(self.cursor), True)

    def kill_to_end(self):
        self._delete(self.cursor, len(self.text), True)

    def kill_line(self):
        self._delete(0, len(self.text), True)

    def kill_word_left(self):
        if self.cursor > 0:
            self._delete(self._word_left(), self.cursor, True)

    def kill_word_right(self):
        if self.cursor < len(self.text):
            self._delete(self.cursor, self._word_right(), True)

    def yank(self):
        self.insert(self.killed)

    def swap(self):
        """The characters around the cursor, or the two before it at the end."""
        last = self._after(self.cursor)
        middle = self._before(last)
        first = self._before(middle)
        if first < middle:
            self.text = (self.text[:first] + self.text[middle:last]
                         + self.text[first:middle] + self.text[last:])
            self.cursor = last

    def _change(self, change):
        """Changes the word behind the cursor, and goes behind it."""
        end = self._word_right()
        word = change(self.text[self.cursor:end])
        self.text = self.text[:self.cursor] + word + self.text[end:]
        self.cursor = end

    def raise_word(self):
        self._change(raised)

    def lower_word(self):
        self._change(lowered)

    def capital(self):
        def change(word):
            first = next((at for at, char in enumerate(word) if is_letter(char)), len(word))
            return word[:first] + raised(word[first:first + 1]) + lowered(word[first + 1:])
        self._change(change)

    # The history

    def _recall(self):
        """The line at the place in the history; a line end, then a blank at its end go."""
        line = self.saved
        if self.place > 0:
            line = self.history[self.place - 1]
            for last in "\n ":
                line = line[:-1] if line.endswith(last) else line
        self.text, self.cursor = line, len(line)

    def older(self):
        if self.place == 0:
            self.saved = self.text
        self.place = min(self.place + 1, len(self.history))
        self._recall()

    def newer(self):
        self.place = max(self.place - 1, 0)
        self._recall()

    def search(self):
        self.searches = [Search("", True, self.place, self.text, self.cursor)]

    def _search(self, key):
        """A key during a search; whether it was one of the search's own."""
        step = self.searches[-1]
        if key in ("<bs>", "<c-h>"):
            if len(self.searches) > 1 and step.pattern:
                self.searches.pop()
                self._go_back(self.searches[-1])
            else:
                self._repeat()
        elif key == "<c-g>":
            self._give_up()
        elif key == "<c-r>":
            if step.pattern:
                self._look(step.pattern, again=True)
            else:
                self._repeat()
        elif len(key) == 1:
            self._look(step.pattern + key)
        else:
            self.end_search()
            return False
        return True

    def _give_up(self):
        """Back to the last step that found something; from there, to before the search.

        Whether the first step may be gone back to, the search before has left behind.
        """
        steps = self.searches
        back = [] if steps[-1].found else [
            at for at in range(len(steps) - 1) if (steps[at].found if at else self.found)]
        self._go_back(steps[back[-1] if back else 0])
        self.searches = steps[:back[-1] + 1] if back else []
        if not back:
            self.cursor = min(self.cursor, len(self.text))

    def end_search(self):
        """Another key ends it, and does what it does."""
        if self.searches:
            self.found = self.searches[-1].found
            self.searches = []
            self.cursor = min(self.cursor, len(self.text))
            self._settle()

    def _repeat(self):
        """A key that changes nothing is a step, too."""
        self.searches.append(self.searches[-1])

    def _go_back(self, step):
        if self.place != step.place:
            self.place = step.place
            self._recall()
        self.cursor = step.cursor

    def _look(self, pattern, again=False):
        step = self.searches[-1]
        before = self.place, step.cursor  # which may be behind what is shown
        if again and not step.found:  # round to the newest
            self.place = 0
            self._recall()
        elif again:
            self.cursor -= 1
        found = self._found(pattern)
        if not found:
            if self.place != before[0]:
                self.place = before[0]
                self._recall()
            self.cursor = before[1]  # of the line as it was edited; here it may be shorter
        self.searches.append(Search(pattern, found, self.place, self.text, self.cursor))

    def _found(self, pattern):
        if 0 <= self.cursor <= len(self.text):
            at = self.text.rfind(pattern, 0, self.cursor + len(pattern))
            if at >= 0:
                self.cursor = at
                return True
        if self.place == 0:
            self.saved = self.text
        for place in range(self.place + 1, len(self.history) + 1):
            line = self.history[place - 1]
            if pattern in line and line != self.text:
                self.place = place
                self._recall()
                at = self.text.rfind(pattern)
                self.cursor = at if at >= 0 else self.cursor
                return True
        return False


def raised(text):
    return "".join(char if is_mark(char) else chr(upper(char)) for char in text)


def lowered(text):
    return "".join(char if is_mark(char) else chr(lower(char)) for char in text)


EDITING = {
    "<left>": Line.left, "<c-b>": Line.left, "<right>": Line.right, "<c-f>": Line.right,
    "<home>": Line.home, "<c-a>": Line.home, "<end>": Line.end, "<c-e>": Line.end,
    "<m-b>": Line.word_left, "<m-f>": Line.word_right, "<bs>": Line.backspace,
    "<c-h>": Line.backspace, "<del>": Line.delete_and_keep, "<c-d>": Line.delete,
    "<c-k>": Line.kill_to_end, "<c-u>": Line.kill_line, "<c-w>": Line.kill_word_left,
    "<m-d>": Line.kill_word_right, "<c-y>": Line.yank, "<c-t>": Line.swap,
    "<m-c>": Line.capital, "<m-u>": Line.raise_word, "<m-l>": Line.lower_word,
    "<up>": Line.older, "<c-p>": Line.older, "<down>": Line.newer, "<c-n>": Line.newer,
    "<c-r>": Line.search, "<c-l>": lambda line: None, "<c-g>": lambda line: None,
}
