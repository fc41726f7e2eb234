export const dayNames = ['Sun', 'Mon', 'Tue', 'Wed', 'Thu', 'Fri', 'Sat'];

/** Weekdays in the order a week is read here: Monday first. Numbering: 1 = Sunday. */
export const weekOrder = [2, 3, 4, 5, 6, 7, 1];

export function clock(seconds: number): string {
  const s = Math.max(0, Math.ceil(seconds));
  return `${Math.floor(s / 60)}:${`${s % 60}`.padStart(2, '0')}`;
}

export function minuteToTime(minute: number): string {
  const m = ((Math.round(minute) % 1440) + 1440) % 1440;
  return `${`${Math.floor(m / 60)}`.padStart(2, '0')}:${`${m % 60}`.padStart(2, '0')}`;
}

export function timeToMinute(text: string): number | undefined {
  const m = /^(\d{1,2}):(\d{2})$/.exec(text);
  if (!m) return undefined;
  const h = Number(m[1]);
  const min = Number(m[2]);
  return h < 24 && min < 60 ? h * 60 + min : undefined;
}

export function daysText(days: number[] | undefined): string {
  if (!days) return 'Every day';
  const set = new Set(days);
  if ([2, 3, 4, 5, 6].every((d) => set.has(d)) && set.size === 5) return 'Weekdays';
  if (set.size === 7) return 'Every day';
  return weekOrder.filter((d) => set.has(d)).map((d) => dayNames[d - 1]).join(', ') || 'Never';
}
