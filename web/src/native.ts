import { useEffect, useState } from 'preact/hooks';

// The contract with the native shell: window.TOVIN_NATIVE, injected before our first script.
// Everything the page knows arrives here; everything it changes leaves through these functions.
//
// Shown or only prepared. The shell builds a lockout's page while its countdown runs, so the
// shield can rise at once, and the person may still snooze. Such a page boots with
// `shown: false` and must not start anything (no step clock, no busy mark) until the shell
// sets `shown` to true and dispatches the window event 'tovin-shown', which it does the moment
// the shield shows the page. Every other page boots with `shown: true`.

export type Mode = 'setup' | 'locked' | 'retest';
export type BlockKind = 'workout' | 'away' | 'retest';

/** A block in the schedule file's form. */
export interface Block {
  at: string;
  label: string;
  kind: BlockKind;
  minutes?: number;
  days?: number[];
}

export interface PromiseRecord {
  date: string;
  outcome: 'tovin' | 'broken';
  exercise: string;
  reps: number;
  cleanReps: number;
  reason?: string;
  attested?: boolean;
}

export interface Standing {
  streak: number;
  tovin: number;
  broken: number;
  attested: number;
  best: number;
}

export interface ScheduleWindow {
  weekdays: number[];
  fromMinute: number;
  toMinute: number;
  triggerAfterMinutes: number;
}

export interface SettingsUpdate {
  lockoutWorkoutId?: string;
  weekdays?: number[];
  fromMinute?: number;
  toMinute?: number;
  triggerAfterMinutes?: number;
  onboarded?: boolean;
  retestDueInDays?: number;
}

export interface Native {
  mode: Mode;
  lockoutWorkoutId?: string;
  blockLabel?: string | null;
  blocks: Block[];
  schedule: ScheduleWindow;
  onboarded: boolean;
  promises: PromiseRecord[];
  /** False while the page is only prepared behind a countdown; see onShown. */
  shown: boolean;
  complete(exercise: string, reps: number): void;
  promisesSynced(merged: PromiseRecord[]): void;
  setBusy(reason: string): void;
  clearBusy(): void;
  saveSchedule(blocks: Block[]): void;
  setWorkoutPlan(blocks: Block[]): void;
  saveSettings(settings: SettingsUpdate): void;
}

type RawNative = Partial<Omit<Native, 'blocks' | 'promises'>> & {
  blocks?: unknown;
  promises?: unknown;
};

declare global {
  interface Window {
    TOVIN_NATIVE?: RawNative;
    __tovinPosted?: unknown[];
  }
}

/** Arrays may arrive as arrays or as JSON text; anything unreadable is an empty list. */
export function asArray<T>(value: unknown): T[] {
  if (Array.isArray(value)) return value as T[];
  if (typeof value === 'string') {
    try {
      const parsed: unknown = JSON.parse(value);
      return Array.isArray(parsed) ? (parsed as T[]) : [];
    } catch {
      return [];
    }
  }
  return [];
}

const defaultWindow: ScheduleWindow = {
  weekdays: [1, 2, 3, 4, 5, 6, 7],
  fromMinute: 540,
  toMinute: 1080,
  triggerAfterMinutes: 50,
};

function readMode(value: unknown): Mode {
  return value === 'setup' || value === 'retest' ? value : 'locked';
}

/** The bridge, normalised: safe to read whatever the shell (or a stand-in) provided. */
export function normalise(raw: RawNative): Native {
  const noop = () => {};
  const s = raw.schedule ?? defaultWindow;
  return {
    mode: readMode(raw.mode),
    lockoutWorkoutId: typeof raw.lockoutWorkoutId === 'string' ? raw.lockoutWorkoutId : undefined,
    blockLabel: typeof raw.blockLabel === 'string' ? raw.blockLabel : null,
    blocks: asArray<Block>(raw.blocks),
    schedule: {
      weekdays: Array.isArray(s.weekdays) ? s.weekdays : defaultWindow.weekdays,
      fromMinute: typeof s.fromMinute === 'number' ? s.fromMinute : defaultWindow.fromMinute,
      toMinute: typeof s.toMinute === 'number' ? s.toMinute : defaultWindow.toMinute,
      triggerAfterMinutes:
        typeof s.triggerAfterMinutes === 'number' ? s.triggerAfterMinutes : defaultWindow.triggerAfterMinutes,
    },
    onboarded: raw.onboarded === true,
    promises: asArray<PromiseRecord>(raw.promises),
    // Only an explicit false holds the page back: a shell that never says is showing it.
    shown: raw.shown !== false,
    complete: raw.complete?.bind(raw) ?? noop,
    promisesSynced: raw.promisesSynced?.bind(raw) ?? noop,
    setBusy: raw.setBusy?.bind(raw) ?? noop,
    clearBusy: raw.clearBusy?.bind(raw) ?? noop,
    saveSchedule: raw.saveSchedule?.bind(raw) ?? noop,
    setWorkoutPlan: raw.setWorkoutPlan?.bind(raw) ?? noop,
    saveSettings: raw.saveSettings?.bind(raw) ?? noop,
  };
}

/**
 * Outside the shell (a plain browser, for development) a stand-in with the same members
 * records what the page posts in window.__tovinPosted. `?mode=setup` picks the screen.
 */
export function devStandIn(search: string): RawNative {
  const params = new URLSearchParams(search);
  const posted: unknown[] = (window.__tovinPosted = []);
  const post = (m: unknown) => {
    posted.push(m);
    console.info('[tovin stand-in]', m);
  };
  return {
    mode: readMode(params.get('mode') ?? 'setup'),
    lockoutWorkoutId: params.get('workout') ?? 'classic-7',
    blockLabel: params.get('label'),
    blocks: [
      { at: '13:00', label: 'The Classic 7', kind: 'workout', days: [2, 3, 4, 5, 6] },
      { at: '16:30', label: 'Walk', kind: 'away', minutes: 15 },
    ],
    schedule: defaultWindow,
    onboarded: params.get('onboarded') === '1',
    promises: [],
    shown: true,
    complete: (exercise, reps) => post({ type: 'workoutComplete', exercise, reps }),
    promisesSynced: (merged) => post({ type: 'promisesSynced', promises: JSON.stringify(merged) }),
    setBusy: (reason) => post({ type: 'busy', reason }),
    clearBusy: () => post({ type: 'busy', reason: '' }),
    saveSchedule: (blocks) => post({ type: 'saveSchedule', blocks: JSON.stringify(blocks) }),
    setWorkoutPlan: (blocks) => post({ type: 'setWorkoutPlan', blocks: JSON.stringify(blocks) }),
    saveSettings: (s) => post({ type: 'saveSettings', ...s }),
  };
}

export function connect(): Native {
  return normalise(window.TOVIN_NATIVE ?? devStandIn(window.location.search));
}

/** Listens for the shell's new standing after a completed workout. */
export function onStanding(listener: (s: Standing) => void): () => void {
  const handler = (e: Event) => {
    const detail = (e as CustomEvent).detail as Partial<Standing> | undefined;
    if (detail && typeof detail.streak === 'number') listener(detail as Standing);
  };
  window.addEventListener('tovin-standing', handler);
  return () => window.removeEventListener('tovin-standing', handler);
}

/**
 * Calls `listener` once, when the shell shows the page: at once if it already does, else on the
 * 'tovin-shown' event. Reads the live bridge, which the shell updates in place.
 */
export function onShown(listener: () => void): () => void {
  if (window.TOVIN_NATIVE?.shown !== false) {
    listener();
    return () => {};
  }
  const handler = () => {
    window.removeEventListener('tovin-shown', handler);
    listener();
  };
  window.addEventListener('tovin-shown', handler);
  return () => window.removeEventListener('tovin-shown', handler);
}

/** Whether the shell shows the page yet: false while it is only prepared behind a countdown. */
export function useShown(): boolean {
  const [shown, setShown] = useState(() => window.TOVIN_NATIVE?.shown !== false);
  useEffect(() => (shown ? undefined : onShown(() => setShown(true))), []);
  return shown;
}
