// Compares the list with the server's own counts: every record of the server is in the list, so a
// surplus of one type comes from clients' texts that imitate records.

const LOOKS_REMEMBERED = 3;

// How many clients of each type the list holds beyond the server's count; negative if fewer.
export function excessOf(clients, { idleCount, uploadCount, downloadCount }) {
  const excess = { message: -idleCount, upload: -uploadCount, download: -downloadCount };
  for (const { type } of clients) ++excess[type];
  return excess;
}

export function agrees(excess) {
  return Object.values(excess).every((number) => number === 0);
}

// Remembers which types were in excess lately: a client that connects and disconnects between the
// two requests can make the numbers agree now and then.
export class ExcessWatch {
  #looksLeft = { message: 0, upload: 0, download: 0 };

  // Takes the excess of one look and returns its clients with their doubts: "row" if all of a row
  // may be forged, "texts" if all but its address, type and speed may be.
  mark(clients, excess) {
    for (const [type, number] of Object.entries(excess)) {
      this.#looksLeft[type] = number > 0 ? LOOKS_REMEMBERED : Math.max(this.#looksLeft[type] - 1, 0);
    }
    const inDoubt = (client) => client !== undefined && this.#looksLeft[client.type] > 0;
    return clients.map((client, index) => {
      if (inDoubt(client)) return { ...client, doubt: 'row' };
      return inDoubt(clients[index + 1]) ? { ...client, doubt: 'texts' } : client;
    });
  }
}
