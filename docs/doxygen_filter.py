#!/usr/bin/env python3
"""Doxygen input filter for the public headers (INPUT_FILTER of docs/Doxyfile.in).

The headers keep plain C comments; this filter turns them into Doxygen's
forms on the fly, so that a header needs no markup of its own:

  file          the first comment of a file becomes its \\file page, without
                the "name.h - " in front of its first line;
  banner        a comment whose first line is dashes opens a member group:
                its first line of text is the group's title, the rest the
                group's text; the next banner, or the end of the file,
                closes the group;
  declaration   a comment directly above a line of code documents what that
                line declares (a function, record, field, macro or type);
  member        a comment behind code on the same line documents that field
                or macro (/**<);
  plain         every other comment stays a plain comment.

Text inside the comments is escaped, so that Doxygen prints it as written:
backslashes, '@', '%', '<', '>', '&', '#' and '$' mean nothing special in a
header.  Runs of comment lines indented by two or more spaces stay
preformatted.  The output has exactly the input's lines, so that Doxygen's
warnings point at the right line of the header.
"""
import os
import re
import sys

ESCAPED = re.compile(r'([\\@%<>&#$])')
DASHES = re.compile(r'\s*-+\s*$')
INDENTED = re.compile(r'  +\S')
COMMENT_STAR = re.compile(r'\s*\*(?!/)( |$)')
# Lines that may follow a comment without being what the comment is about.
NOT_A_DECLARATION = re.compile(
    r'\s*($|/[/*]|}|#\s*(include|ifndef|ifdef|if|else|elif|endif)\b|HALV_(BEGIN|END)_DECLS\b|extern\b)')
# Directives whose trailing comment says which condition they close.
CONDITIONAL = re.compile(r'\s*#\s*(endif|else|elif|if|ifdef|ifndef)\b')


def escape(text):
    return ESCAPED.sub(r'\\\1', text)


def find_comments(lines):
    """Block comments as (first row, column of '/*', last row, column of '*/')."""
    comments = []
    row = 0
    while row < len(lines):
        line = lines[row]
        col, slashes = line.find('/*'), line.find('//')
        if col < 0 or 0 <= slashes < col:
            row += 1
            continue
        end_row, end_col = row, line.find('*/', col + 2)
        while end_col < 0:
            end_row += 1
            end_col = lines[end_row].find('*/')
        comments.append((row, col, end_row, end_col))
        row = end_row + 1
    return comments


class Comment:
    """One block comment of the header, split into the ' * ' prefix and the
    text of each of its rows."""

    def __init__(self, lines, first, col, last, end_col):
        self.lines, self.first, self.col, self.last, self.end_col = lines, first, col, last, end_col
        self.prefix, self.text = {}, {}
        for row in self.rows():
            line = lines[row]
            text = line[col + 2 if row == first else 0:end_col if row == last else len(line)]
            prefix = ''
            star = COMMENT_STAR.match(text) if row != first else None
            if star:
                prefix, text = star.group(0), text[star.end():]
            self.prefix[row], self.text[row] = prefix, text
        self.new_text = {row: escape(text) for row, text in self.text.items()}

    def rows(self):
        return range(self.first, self.last + 1)

    def code_before(self):
        return self.lines[self.first][:self.col].strip() != ''

    def line_after(self):
        return self.lines[self.last + 1] if self.last + 1 < len(self.lines) else ''

    def preformat(self):
        """Marks runs of rows indented by two or more spaces as preformatted."""
        run = []
        for row in list(self.rows()) + [None]:
            if row is not None and INDENTED.match(self.text[row]):
                run.append(row)
                continue
            if run:
                self.new_text[run[0]] = '<pre>' + self.new_text[run[0]]
                self.new_text[run[-1]] += '</pre>'
                run = []

    def rewrite(self, opener, closer_suffix=''):
        """Writes the comment back with a new opener and its new text."""
        for row in self.rows():
            line = self.lines[row]
            head = line[:self.col] + opener if row == self.first else self.prefix[row]
            tail = '*/' + closer_suffix + line[self.end_col + 2:] if row == self.last else ''
            self.lines[row] = head + self.new_text[row] + tail


def kind_of(comment, index):
    if index == 0 and not comment.code_before():
        return 'file'
    if re.match(r'\s*-{8,}', comment.text[comment.first]):
        return 'banner'
    if comment.code_before():
        return 'plain' if CONDITIONAL.match(comment.lines[comment.first]) else 'member'
    if not NOT_A_DECLARATION.match(comment.line_after()):
        return 'declaration'
    return 'plain'


class HeaderFilter:
    def __init__(self, path):
        with open(path, encoding='utf-8') as source:
            self.lines = source.read().split('\n')
        self.name = os.path.basename(path)
        self.group_open = False

    def file(self, comment):
        first = next((r for r in comment.rows() if comment.text[r].strip()), comment.first)
        text = re.sub(r'^\s*' + re.escape(escape(self.name)) + r'\s+-\s+', '', comment.new_text[first])
        comment.new_text[first] = text[:1].upper() + text[1:]
        comment.preformat()
        comment.rewrite('/** \\file ')

    def banner(self, comment):
        titled = False
        for row in comment.rows():
            if DASHES.match(comment.new_text[row]):
                comment.new_text[row] = ''
            elif comment.new_text[row].strip() and not titled:
                comment.new_text[row] = '@name ' + comment.new_text[row].strip()
                titled = True
        comment.preformat()
        comment.rewrite(('/** @} */ ' if self.group_open else '') + '/** ', closer_suffix=' /** @{ */')
        self.group_open = True

    def declaration(self, comment):
        comment.preformat()
        comment.rewrite('/** ')

    def member(self, comment):
        comment.rewrite('/**< ')

    def plain(self, comment):
        pass

    def close_group(self):
        """Closes the last group on the last line of code before the final
        #endif."""
        if not self.group_open:
            return
        for row in range(len(self.lines) - 1, -1, -1):
            line = self.lines[row]
            if line.strip() and not CONDITIONAL.match(line) and not line.lstrip().startswith('/*'):
                self.lines[row] += ' /** @} */'
                return

    def run(self):
        for index, found in enumerate(find_comments(self.lines)):
            comment = Comment(self.lines, *found)
            getattr(self, kind_of(comment, index))(comment)
        self.close_group()
        return '\n'.join(self.lines)


if __name__ == '__main__':
    sys.stdout.write(HeaderFilter(sys.argv[1]).run())
