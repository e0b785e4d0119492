// A headless Chromium, driven by chromedriver over HTTP.

import {spawn} from 'node:child_process';
import {writeFileSync} from 'node:fs';
import {createInterface} from 'node:readline';
import {pathToFileURL} from 'node:url';

const ELEMENT = 'element-6066-11e4-a52e-4f735466cecf';

export class Browser {
  static async start() {
    const browser = new Browser();
    browser.driver = spawn('chromedriver', ['--port=0'], {stdio: ['ignore', 'pipe', 'inherit']});
    const port = await new Promise((resolve, reject) => {
      browser.driver.on('exit', () => reject(new Error('chromedriver ended')));
      createInterface({input: browser.driver.stdout}).on('line', (line) => {
        const found = /started successfully on port (\d+)/.exec(line);
        if (found) resolve(found[1]);
      });
    });
    browser.base = `http://127.0.0.1:${port}/session`;
    // Root has no sandbox to give away.
    const args =
        ['--headless=new', '--no-sandbox', '--disable-dev-shm-usage', '--window-size=1280,800'];
    const session = await browser.send('POST', '', {
      capabilities: {
        alwaysMatch: {
          'goog:chromeOptions': {args},
          'goog:loggingPrefs': {browser: 'ALL'},
          'unhandledPromptBehavior': 'ignore'
        }
      }
    });
    browser.base += `/${session.sessionId}`;
    return browser;
  }

  async send(method, path, body) {
    const response = await fetch(this.base + path, {method, body: body && JSON.stringify(body)});
    const {value} = await response.json();
    if (!response.ok) throw new Error(`${method} ${path}: ${value.message}`);
    return value;
  }

  async quit() {
    await this.send('DELETE', '');
    this.driver.kill();
  }

  cdp(cmd, params) {
    return this.send('POST', '/goog/cdp/execute', {cmd, params});
  }

  async open(file, hash = '') {
    // Another fragment alone would load nothing.
    await this.send('POST', '/url', {url: 'about:blank'});
    await this.send('POST', '/url', {url: pathToFileURL(file).href + hash});
    await this.settled();
  }

  // Runs in the page; may be asynchronous.
  run(script, ...args) {
    return this.send('POST', '/execute/sync', {script: `return (${script})(...arguments)`, args});
  }

  // Waits for the page to have shown all that was asked for.
  settled() {
    return this.run(async () => {
      const frame = () => new Promise(requestAnimationFrame);
      do {
        await frame();
        await frame();
      } while (document.body.ariaBusy === 'true');
    });
  }

  async find(css) {
    return (await this.send('POST', '/element', {using: 'css selector', value: css}))[ELEMENT];
  }

  async click(css) {
    await this.send('POST', `/element/${await this.find(css)}/click`, {});
    await this.settled();
  }

  async type(css, text) {
    await this.send('POST', `/element/${await this.find(css)}/value`, {text});
    await this.settled();
  }

  // Keys for what has the focus.
  async keys(text) {
    const actions =
        [...text].flatMap((value) => ['keyDown', 'keyUp'].map((type) => ({type, value})));
    await this.send('POST', '/actions', {actions: [{type: 'key', id: 'keys', actions}]});
    await this.settled();
  }

  // Moves the pressed pointer from one place of an element to another; places are shares of its
  // width.
  async drag(css, from, to) {
    const origin = {[ELEMENT]: await this.find(css)};
    const width = await this.run((selector) => document.querySelector(selector).clientWidth, css);
    const move = (share) =>
        ({type: 'pointerMove', duration: 0, origin, x: Math.round((share - 0.5) * width), y: 0});
    const actions =
        [move(from), {type: 'pointerDown', button: 0}, move(to), {type: 'pointerUp', button: 0}];
    await this.send('POST', '/actions', {actions: [{type: 'pointer', id: 'pointer', actions}]});
    await this.settled();
  }

  async screenshot(file, {width = 1280, height = 800, dark = false} = {}) {
    await this.cdp(
        'Emulation.setDeviceMetricsOverride', {width, height, deviceScaleFactor: 1, mobile: false});
    await this.cdp('Emulation.setEmulatedMedia', {
      features: [{name: 'prefers-color-scheme', value: dark ? 'dark' : 'light'}],
    });
    await this.settled();
    writeFileSync(file, Buffer.from(await this.send('GET', '/screenshot'), 'base64'));
  }

  // What the console said since it was asked last.
  console() {
    return this.send('POST', '/se/log', {type: 'browser'});
  }
}
