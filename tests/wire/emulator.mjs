// Starts the emulator program and stops it after the tests of a file.
import { spawn } from 'node:child_process';
import { after } from 'node:test';
import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { createInterface } from 'node:readline';

/** Starts a provider's service with a scenario. Returns the base of its URLs, such as "http://127.0.0.1:40123". */
export async function startEmulator(provider, scenario) {
  const folder = mkdtempSync(join(tmpdir(), 'wire-'));
  const file = join(folder, 'scenario.json');
  writeFileSync(file, JSON.stringify(scenario));
  const program = process.env.KAI_EMULATOR_PROGRAM;
  const child = spawn(program, ['--provider', provider, '--plain', '--scenario', file], {
    stdio: ['ignore', 'pipe', 'inherit'],
  });
  after(() => {
    child.kill('SIGTERM');
    rmSync(folder, { recursive: true });
  });
  const { value: line } = await createInterface({ input: child.stdout })[Symbol.asyncIterator]().next();
  if (line === undefined) {
    throw new Error(`${program} ended before it was ready`);
  }
  return `http://${JSON.parse(line).host}`;
}

/** Collects what an asynchronous iterable yields. */
export async function collect(iterable) {
  const values = [];
  for await (const value of iterable) {
    values.push(value);
  }
  return values;
}
