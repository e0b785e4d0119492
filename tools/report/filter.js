// Which lines are shown, and how many there are of everything.

import {FACETS} from './log.js';

export const SPARK_PARTS = 32;

// Each criterion is tested once for each source and each pattern, then the lines are passed once.
export class Filter {
  constructor(log) {
    this.log = log;
    this.fails = new Uint8Array(log.sourceCount);  // a bit for each facet that a source fails in
    this.bySource = new Uint32Array(log.sourceCount);       // lines that pass but for their source
    this.byPattern = new Uint32Array(log.patterns.length);  // and but for their pattern
    this.sparks = new Uint32Array(log.patterns.length * SPARK_PARTS);
    this.places = new Uint32Array(log.lines);
    this.lines = this.places.subarray(0, 0);  // the numbers of those that pass
    this.matches = 0;
  }

  // The mask tells which lines match the text; null where there is none.
  apply(state, mask) {
    const {log, fails, bySource, byPattern, sparks, places} = this;
    const passes = this.testPatterns(state);
    this.testSources(state);
    bySource.fill(0);
    byPattern.fill(0);
    sparks.fill(0);
    const [from, to] = state.span ?? [0, log.lines];
    const {sourceOf, patternOf, at} = log;
    const start = from < to ? at[from] : 0;
    const scale = SPARK_PARTS / Math.max(1, (from < to ? at[to - 1] : 0) - start + 1);
    const only = state.all ? null : mask;
    let count = 0;
    let matches = 0;
    for (let line = from; line < to; line++) {
      if (only && only[line] === 0) continue;
      const source = sourceOf[line];
      const pattern = patternOf[line];
      const passed = passes[pattern];
      bySource[source] += passed;
      if (fails[source]) continue;
      byPattern[pattern]++;
      const part = ((at[line] - start) * scale) | 0;
      sparks[pattern * SPARK_PARTS + part]++;
      if (!passed) continue;
      if (mask) matches += mask[line];
      places[count++] = line;
    }
    this.mask = mask;
    this.matches = matches;
    this.lines = places.subarray(0, count);
  }

  testPatterns(state) {
    const {only, not} = {only: state.only.pattern, not: state.not.pattern};
    const passes = new Uint8Array(this.log.patterns.length).fill(only.size ? 0 : 1);
    // Numbers count from 1 for people.
    for (const number of only) passes[Number(number) - 1] = 1;
    for (const number of not) passes[Number(number) - 1] = 0;
    return passes;
  }

  testSources(state) {
    this.fails.fill(0);
    FACETS.forEach((facet, bit) => {
      const {values, of} = this.log.facets[facet];
      const only = state.only[facet];
      const not = state.not[facet];
      if (!only.size && !not.size) return;
      const failed = values.map((value) => not.has(value) || (only.size > 0 && !only.has(value)));
      of.forEach((value, source) => {
        if (failed[value]) this.fails[source] |= 1 << bit;
      });
    });
  }

  // For each value of a facet the lines that there would be if the facet filtered nothing.
  counts(facet) {
    const {values, of} = this.log.facets[facet];
    const others = ~(1 << FACETS.indexOf(facet));
    const counts = new Uint32Array(values.length);
    for (let source = 0; source < of.length; source++) {
      if (!(this.fails[source] & others)) counts[of[source]] += this.bySource[source];
    }
    return counts;
  }
}
