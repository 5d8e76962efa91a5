// SPDX-License-Identifier: MIT
// A server in this process that sends any messages to the page: for faults that the real program does not
// produce on command.
import { createServer } from 'node:http';
import { readFileSync } from 'node:fs';
import { extname, join } from 'node:path';
import { once } from 'node:events';
import { hello } from './messages.mjs';
import { endLater, pageFolder, WebSocketServer } from './support.mjs';

const TYPES = { '.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.svg': 'image/svg+xml' };

export class FakeProgram {
  viewers = new Set();
  /** The first messages to every new viewer. */
  greeting = (viewer) => viewer.say(hello());

  async start(port = 0) {
    this.server = createServer((request, response) => {
      const path = request.url === '/' ? '/index.html' : request.url;
      try {
        response.setHeader('Content-Type', TYPES[extname(path)] ?? 'application/octet-stream');
        response.end(readFileSync(join(pageFolder, 'dist', path)));
      } catch {
        response.writeHead(404).end();
      }
    });
    this.sockets = new WebSocketServer({ server: this.server, path: '/live' });
    this.sockets.on('connection', (socket) => {
      const viewer = {
        say: (message) => socket.send(typeof message === 'object' && !(message instanceof ArrayBuffer) ? JSON.stringify(message) : message),
        leave: () => socket.terminate(),
      };
      this.viewers.add(viewer);
      socket.on('close', () => this.viewers.delete(viewer));
      this.greeting(viewer);
    });
    this.server.listen(port, '127.0.0.1');
    await once(this.server, 'listening');
    this.port = this.server.address().port;
    this.address = `http://127.0.0.1:${this.port}`;
    endLater(() => this.stop());
    return this;
  }

  say(...messages) {
    for (const viewer of this.viewers) for (const message of messages) viewer.say(message);
  }

  async stop() {
    if (!this.server.listening) return;
    for (const viewer of this.viewers) viewer.leave();
    this.server.closeAllConnections();
    this.server.close();
    await once(this.server, 'close');
  }
}
