// The levels page of `qslave serve`: the page, its script and its style,
// fixed texts compiled into the tool. The script asks /levels.json every
// second and redraws the chart (/levels.svg) and the table when the
// levels changed, without reloading the page.
#ifndef QSLAVE_CLI_SERVE_PAGE_H
#define QSLAVE_CLI_SERVE_PAGE_H

extern const char kServePage[];
extern const char kServeScript[];
extern const char kServeStyle[];

#endif
