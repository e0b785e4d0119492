// What is shown, and as the address has it: a link shows what one saw.

export const FACETS = ["level", "tag", "pid", "tid", "host", "boot", "pattern"];
export const SORTS = ["count", "new", "level"];

const noFilters = () => Object.fromEntries(FACETS.map((facet) => [facet, new Set()]));

function emptyState() {
  return {
    text: "",
    regex: false,
    exact: false, // upper and lower case differ
    all: false, // lines without a match stay
    only: noFilters(), // by facet: values, as text
    not: noFilters(),
    span: null, // [first line, line behind the last]
    line: null, // selected
    sort: "count",
    utc: false,
  };
}

export const state = emptyState();

let listener = () => {};
let utcByDefault = false;

export function start(onChange, utc) {
  listener = onChange;
  utcByDefault = utc;
  read();
  addEventListener("hashchange", () => {
    if (location.hash.slice(1) !== write()) {
      read();
      listener();
    }
  });
}

function write() {
  const words = new URLSearchParams();
  if (state.text) words.set("text", state.text);
  for (const flag of ["regex", "exact", "all"]) if (state[flag]) words.set(flag, "1");
  for (const facet of FACETS) {
    for (const value of state.only[facet]) words.append(facet, value);
    for (const value of state.not[facet]) words.append(`not-${facet}`, value);
  }
  // Lines count from 1 for people.
  if (state.span) words.set("span", `${state.span[0] + 1}-${state.span[1]}`);
  if (state.line !== null) words.set("line", state.line + 1);
  if (state.sort !== "count") words.set("sort", state.sort);
  if (state.utc !== utcByDefault) words.set("utc", state.utc ? "1" : "0");
  return words.toString();
}

function read() {
  const words = new URLSearchParams(location.hash.slice(1));
  Object.assign(state, emptyState());
  state.text = words.get("text") ?? "";
  for (const flag of ["regex", "exact", "all"]) state[flag] = words.get(flag) === "1";
  for (const facet of FACETS) {
    state.only[facet] = new Set(words.getAll(facet));
    state.not[facet] = new Set(words.getAll(`not-${facet}`));
  }
  const span = /^(\d+)-(\d+)$/.exec(words.get("span") ?? "");
  if (span && Number(span[1]) >= 1) state.span = [Number(span[1]) - 1, Number(span[2])];
  const line = Number(words.get("line"));
  if (Number.isInteger(line) && line >= 1) state.line = line - 1;
  if (SORTS.includes(words.get("sort"))) state.sort = words.get("sort");
  state.utc = words.has("utc") ? words.get("utc") === "1" : utcByDefault;
}

// Changes what is shown. The way back leads over every change but those of place.
export function update(changes) {
  const placeOnly = Object.keys(changes).every((key) => key === "line" || key === "sort");
  Object.assign(state, changes);
  const address = "#" + write();
  if (address !== (location.hash || "#")) {
    history[placeOnly ? "replaceState" : "pushState"](null, "", address);
  }
  listener(changes);
}

// Adds a value to a filter, or takes it away where it is one.
export function toggle(facet, value, kind = "only") {
  const other = kind === "only" ? "not" : "only";
  const sets = { [kind]: { ...state[kind] }, [other]: { ...state[other] } };
  for (const each of ["only", "not"]) sets[each][facet] = new Set(sets[each][facet]);
  sets[other][facet].delete(value);
  if (!sets[kind][facet].delete(value)) sets[kind][facet].add(value);
  update(sets);
}

export function clearFilters() {
  update({ text: "", only: noFilters(), not: noFilters(), span: null });
}

export function hasFilters() {
  const any = (filters) => FACETS.some((facet) => filters[facet].size > 0);
  return Boolean(state.text || state.span || any(state.only) || any(state.not));
}
