// Draws the page.

import { countText, durationText, element, loadLog } from "./data.js";

async function main() {
  const { log, workers } = await loadLog();
  element("summary").textContent = `${countText(log.lines)} lines, ${durationText(log.end)}`;
  Object.assign(globalThis, { log, workers });
}

main();
