#!/usr/bin/env python3
"""Doxygen's filter for Markdown: turns mermaid diagrams into ones that it draws, and links to a
heading into links to its page, since Doxygen has other names for headings.

Knows what the pages use: flowcharts of boxes and arrows, and sequences of calls and notes. Anything
else ends with an error, so that no diagram is dropped silently.
"""
import re
import sys

BOX = re.compile(r'(\w+)(?:\["([^"]*)"\])?')
ARROW = re.compile(r' (?:(-->)|-- "([^"]*)" -->|-\. "?([^".]*)"? \.->) ')
CALL = re.compile(r'(\w+)-(-?)>>(\w+): (.*)$')
NOTE = re.compile(r'Note over (\w+)(?:,(\w+))?: (.*)$')
PARTICIPANT = re.compile(r'participant (\w+)(?: as (.*))?$')


def refuse(line):
    sys.exit(f'{sys.argv[1]}: error: no diagram known: {line}')


def quoted(text):
    return '"' + text.replace('"', "'") + '"'


def flowchart(direction, lines):
    out = ['\\dot', 'digraph {', f'rankdir={direction}',
           'node [shape=box, fontname=Helvetica, fontsize=10]']
    for line in lines:
        last, label, style, at = None, '', '', 0
        while True:
            box = BOX.match(line, at) or refuse(line)
            name, text = box.groups()
            if text:
                out.append(f'{name} [label={quoted(text)}]')
            if last:
                out.append(f'{last} -> {name} [label={quoted(label)}{style}]')
            if box.end() == len(line):
                break
            arrow = ARROW.match(line, box.end()) or refuse(line)
            last, label, at = name, arrow[2] or arrow[3] or '', arrow.end()
            style = ', style=dashed' if arrow[3] else ''
    return out + ['}', '\\enddot']


def sequence(lines):
    names, steps = [], []
    for line in lines:
        if found := PARTICIPANT.match(line):
            name, text = found.groups()
            names.append(f'{name} [label={quoted(text or name)}]')
        elif found := CALL.match(line):
            start, dashed, end, text = found.groups()
            steps.append(f'{start} {">>" if dashed else "=>"} {end} [label={quoted(text)}];')
        elif found := NOTE.match(line):
            first, last, text = found.groups()
            steps.append(f'{first} note {last or first} [label={quoted(text)}];')
        else:
            refuse(line)
    return ['\\msc', 'wordwraparcs=1;', ', '.join(names) + ';', *steps, '\\endmsc']


def diagram(text):
    kind, *lines = [line.strip() for line in text.strip().splitlines()]
    if kind in ('flowchart TD', 'flowchart LR'):
        return flowchart(kind[-2:].replace('TD', 'TB'), lines)
    return sequence(lines) if kind == 'sequenceDiagram' else refuse(kind)


with open(sys.argv[1], encoding='utf-8') as page:
    text = re.sub(r'\[([^]]*)\]\(#[^)]*\)', r'\1', page.read())
    text = re.sub(r'(\.md)#[\w-]+\)', r'\1)', text)
    print(re.sub(r'```mermaid\n(.*?)```', lambda m: '\n'.join(diagram(m[1])), text, flags=re.S))
